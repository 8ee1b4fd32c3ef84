# Checks the daemon on a real Windows, as far as a program can. In the folder of the unpacked archive:
#
#   powershell -NoProfile -ExecutionPolicy Bypass -File .\check-windows.ps1
#   powershell -NoProfile -ExecutionPolicy Bypass -File .\check-windows.ps1 -Only ctrl-c,hold
#
# Prints PASS, FAIL or SKIP for each check, with what was seen; the exit status is the number of failures. The programs
# are copied to a folder of its own below %TEMP% and speak over 127.0.0.1 only. All that it starts is ended; the
# folder, and the task that the check "task" registers, are removed. No check needs an administrator.
param(
    [int] $Port = 26130,
    [string[]] $Only = @()
)

Set-StrictMode -Version 2
$ErrorActionPreference = 'Stop'
$Only = @($Only | ForEach-Object { $_ -split ',' }) # with -File the list comes as one text
$script:Failures = 0
. (Join-Path $PSScriptRoot 'check-windows-support.ps1')

function Check([string] $name, [scriptblock] $body) {
    if ($Only.Count -gt 0 -and $Only -notcontains $name) { return }
    $result = 'PASS'
    try {
        $seen = & $body
    } catch {
        $seen = $_.Exception.Message
        $result = if ($seen.StartsWith('SKIP: ')) { 'SKIP' } else { 'FAIL' }
    }
    Stop-Everything
    if ($result -eq 'FAIL') { $script:Failures++ }
    Write-Output "$result $($name): $(@($seen) -join ' ' -replace '^SKIP: ', '')"
}

New-Item -ItemType Directory -Force -Path $Work | Out-Null
Write-Output "Windows $([Environment]::OSVersion.Version), PowerShell $($PSVersionTable.PSVersion), folder $Work"

Check 'usage' {
    $ran = Invoke-Program (Join-Path (New-Node 'usage' '') 'quelta_daemon.exe') ''
    Expect ($ran.Output.Contains('No path to the Quelta render slave given.')) "the usage, not: $($ran.Output) $($ran.Errors)"
    Expect ($ran.Code -eq 0) "status 0, not $($ran.Code)"
    'started without a runtime of its own, status 0'
}

Check 'version' {
    $version = (Get-Item (Join-Path $PSScriptRoot 'quelta_daemon.exe')).VersionInfo
    $seen = "$($version.FileDescription), $($version.FileVersion), $($version.ProductVersion)"
    Expect ($seen -eq 'Quelta Slave Daemon, @PROJECT_VERSION@, 4.00 XB1 (experimental build)') "the daemon's version, not: $seen"
    $seen
}

Check 'redirected' {
    $folder = New-Node 'redirected' ''
    $text = Join-Path $folder 'out.txt'
    $alias = 'Gr' + [char] 0xF6 + [char] 0xDF + 'e ' + [char] 0x65E5 + [char] 0x672C
    # With no such slave the daemon ends by itself; its message names the path.
    $run = Start-Piped (Join-Path $env:SystemRoot 'System32\cmd.exe') `
        "/c cd /d `"$folder`" && quelta_daemon.exe --port $Port --slave `"$alias`" > out.txt 2>&1"
    Expect ($run.WaitForExit($Limit * 1000)) 'the daemon to end'
    $shown = $Utf8.GetString((Read-Shared $text))
    Expect ($shown.Contains("$alias`" is not an existing file.")) "UTF-8 with $alias, not: $shown"
    Expect (($shown -replace "`r`n", '') -notmatch "[`r`n]") 'CR LF at the end of each line'
    'UTF-8 with CR LF'
}

Check 'log-file' {
    $folder = New-Node 'log-file'
    $daemon = Start-Daemon $folder
    $bytes = Read-Shared (Join-Path $folder 'quelta_daemon_log.txt')
    Expect (-not ($bytes -contains 13)) 'no CR in the log file'
    "$($bytes.Length) bytes beside the program, LF only"
}

Check 'log-fallback' {
    $folder = New-Node 'log-fallback'
    $temporary = Join-Path $folder 'temporary'
    New-Item -ItemType Directory -Path $temporary | Out-Null
    $before = $env:TEMP, $env:TMP
    & icacls.exe $folder /deny "$($env:USERNAME):(WD)" | Out-Null # no new files here
    try {
        $env:TEMP = $env:TMP = $temporary
        Start-Process -FilePath (Join-Path $folder 'quelta_daemon.exe') -ArgumentList (Get-Arguments $Port) `
            -WorkingDirectory $folder -WindowStyle Hidden
        Wait-Log $temporary 'start listening for masters on port'
    } finally {
        $env:TEMP, $env:TMP = $before
        & icacls.exe $folder /remove:d $env:USERNAME | Out-Null
    }
    Expect (-not (Test-Path (Join-Path $folder 'quelta_daemon_log.txt'))) 'no log file beside the program'
    'in a folder without the right to write, the log is in %TEMP%'
}

Check 'scan' {
    $folder = New-Node 'scan'
    Start-Daemon $folder | Out-Null
    $node = Invoke-Scan $folder
    Expect ($node.state -eq 'free' -and $node.alias -eq 'check') "a free node 'check', not: $node"
    "alias $($node.alias), $($node.gpus) GPU, version $($node.slaveVersion), $($node.state)"
}

Check 'hold' {
    $folder = New-Node 'hold'
    Start-Daemon $folder | Out-Null
    $hold = Start-Hold $folder
    $stopped = Invoke-Program (Join-Path $folder 'quelta_master.exe') "stop 127.0.0.1:$Port --as $($hold.Address)"
    Expect ($stopped.Code -eq 0) "the stop to succeed, not: $($stopped.Output) $($stopped.Errors)"
    "started for $($hold.Address), stopped; the slave left within $(Wait-NoSlave) s"
}

Check 'ctrl-c' {
    $folder = New-Node 'ctrl-c'
    $daemon = Start-Daemon $folder
    Send-CtrlC $daemon
    $seen = Wait-End $daemon
    Expect ($daemon.ExitCode -eq 0) "status 0, but it $seen"
    Expect ((Read-Log $folder).Contains('Stopped logging on ')) 'the last line of an end in order'
    $seen
}

Check 'ctrl-c-with-slave' {
    $folder = New-Node 'ctrl-c-with-slave'
    $daemon = Start-Daemon $folder
    Start-Hold $folder | Out-Null
    Send-CtrlC $daemon
    $seen = Wait-End $daemon
    Wait-NoSlave | Out-Null
    Expect ($daemon.ExitCode -eq 0) "status 0, but it $seen"
    "$seen, no slave is left"
}

Check 'taskkill' {
    $folder = New-Node 'taskkill'
    $daemon = Start-Daemon $folder
    Start-Hold $folder | Out-Null
    $said = Invoke-Program (Join-Path $env:SystemRoot 'System32\taskkill.exe') "/PID $($daemon.Id)"
    $seen = Wait-End $daemon
    Wait-NoSlave | Out-Null
    Expect ((Read-Log $folder).Contains('Stopped logging on ')) "an end in order; taskkill said: $($said.Output) $($said.Errors)"
    "$seen, no slave is left"
}

Check 'killed' {
    $folder = New-Node 'killed'
    $daemon = Start-Daemon $folder
    Start-Hold $folder | Out-Null
    Stop-Process -Id $daemon.Id -Force
    "no slave is left $(Wait-NoSlave) s after the daemon was killed"
}

Check 'killed-in-job' {
    $folder = New-Node 'killed-in-job'
    $job = Start-Job -ArgumentList $folder, (Get-Arguments $Port) -ScriptBlock {
        param($folder, $arguments)
        Set-Location $folder
        & (Join-Path $folder 'quelta_daemon.exe') $arguments.Replace('"', '').Split(' ') | Out-Null
    }
    try {
        Wait-Log $folder 'start listening for masters on port'
        Start-Hold $folder | Out-Null
        Get-Ours 'quelta_daemon' | Stop-Process -Force
        "no slave is left $(Wait-NoSlave) s after the daemon was killed"
    } finally { Remove-Job $job -Force }
}

Check 'task' {
    $folder = New-Node 'task'
    $name = "quelta-check-$PID"
    $action = New-ScheduledTaskAction -Execute (Join-Path $folder 'quelta_daemon.exe') -Argument (Get-Arguments $Port) `
        -WorkingDirectory $folder
    try { Register-ScheduledTask -TaskName $name -Action $action | Out-Null } catch { Skip "no task: $($_.Exception.Message)" }
    try {
        Start-ScheduledTask -TaskName $name
        Wait-Log $folder 'start listening for masters on port'
        Start-Hold $folder | Out-Null
        Stop-ScheduledTask -TaskName $name
        $seconds = Wait-Until { @(Get-Ours 'quelta_daemon').Count -eq 0 } 'the daemon has ended'
        Wait-NoSlave | Out-Null
        $order = if ((Read-Log $folder).Contains('Stopped logging on ')) { 'in order' } else { 'without an orderly end' }
        "the stop of the task ended the daemon after $seconds s $order, no slave is left"
    } finally { Unregister-ScheduledTask -TaskName $name -Confirm:$false }
}

Check 'port-taken' {
    $first, $second = (New-Node 'port-taken-1'), (New-Node 'port-taken-2')
    Start-Daemon $first | Out-Null
    Start-Process -FilePath (Join-Path $second 'quelta_daemon.exe') -ArgumentList (Get-Arguments $Port) `
        -WorkingDirectory $second -WindowStyle Hidden
    Wait-Log $second 'failed to bind to address: '
    $line = @((Read-Log $second) -split "`n" | Where-Object { $_ -match 'failed to bind' })[0].Trim()
    Expect ($line.EndsWith('(10048)')) "the number 10048, not: $line"
    $line
}

Check 'launch-193' {
    $folder = New-Node 'launch-193' ''
    [IO.File]::WriteAllText((Join-Path $folder 'text.exe'), 'no program')
    $line = Get-LaunchError $folder 'text.exe'
    Expect ($line.EndsWith('failed to launch Quelta slave: 193')) "error 193, not: $line"
    $line
}

Check 'launch-5' {
    $folder = New-Node 'launch-5' ''
    $slave = Join-Path $folder 'quelta_standin_slave.exe'
    & icacls.exe $slave /deny "$($env:USERNAME):(X)" | Out-Null
    try { $line = Get-LaunchError $folder $slave } finally { & icacls.exe $slave /remove:d $env:USERNAME | Out-Null }
    Expect ($line.EndsWith('failed to launch Quelta slave: 5')) "error 5, not: $line"
    $line
}

Check 'long-path' {
    $folder = New-Node 'long-path' ''
    $deep = Join-Path $folder (@('d' * 60) * 4 -join '\')
    [IO.Directory]::CreateDirectory('\\?\' + $deep) | Out-Null
    [IO.File]::Copy((Join-Path $folder 'quelta_standin_slave.exe'), "\\?\$deep\slave.exe")
    Get-LaunchError $folder "$deep\slave.exe"
}

Check 'refused-master' {
    $folder = New-Node 'refused-master'
    Start-Daemon $folder | Out-Null
    $hold = Start-Hold $folder
    $hold.Process.Kill()
    Wait-Log $folder "disconnected from master $($hold.Address)"
    Wait-NoSlave | Out-Null
    $clock = [Diagnostics.Stopwatch]::StartNew()
    $node = Invoke-Scan $folder
    Expect ($node.state -eq 'free') "a free node, not: $node"
    "another master's scan took $([Math]::Round($clock.Elapsed.TotalSeconds, 1)) s"
}

Check 'handles' {
    $folder = New-Node 'handles'
    $daemon = Start-Daemon $folder
    $counts = @()
    foreach ($round in 1..6) {
        $hold = Start-Hold $folder
        Invoke-Program (Join-Path $folder 'quelta_master.exe') "stop 127.0.0.1:$Port --as $($hold.Address)" | Out-Null
        Wait-NoSlave | Out-Null
        if (-not $hold.Process.HasExited) { $hold.Process.Kill() }
        Start-Sleep -Seconds 3 # until the connections are gone
        $daemon.Refresh()
        $counts += $daemon.HandleCount
    }
    # The first round is left out: it loads libraries.
    $grown = $counts[5] - $counts[1]
    Expect ($grown -le 10) "two handles a start at most, not: $counts"
    "$grown more after four starts ($counts)"
}

Check 'virus-scanner' {
    try { $defender = Get-MpComputerStatus } catch { Skip 'Defender cannot be asked' }
    if (-not $defender.RealTimeProtectionEnabled) { Skip "Defender's real-time protection is off" }
    $clock = [Diagnostics.Stopwatch]::StartNew()
    Start-Daemon (New-Node 'virus-scanner') | Out-Null
    "in service $([Math]::Round($clock.Elapsed.TotalSeconds, 1)) s after its start, with Defender's real-time protection"
}

Check 'firewall' {
    $daemon = Join-Path $PSScriptRoot 'quelta_daemon.exe'
    $rules = @(Get-NetFirewallApplicationFilter -Program $daemon -ErrorAction SilentlyContinue | Get-NetFirewallRule |
        Where-Object { $_.Enabled -eq 'True' -and $_.Direction -eq 'Inbound' })
    if ($rules.Count -eq 0) { Skip "no rule for $daemon; SECURITY.md has them" }
    $seen = @($rules | ForEach-Object { "$($_.Action) $(($_ | Get-NetFirewallPortFilter).Protocol)" })
    Expect ($seen -contains 'Allow UDP') "a rule that lets beacons in, not: $($seen -join ', ')"
    Expect (@($seen | Where-Object { $_ -match '^Block (UDP|Any)$' }).Count -eq 0) "no rule against beacons: $($seen -join ', ')"
    $seen -join ', '
}

Remove-Item -LiteralPath ('\\?\' + $Work) -Recurse -Force -ErrorAction SilentlyContinue
Write-Output "$($script:Failures) failed"
exit $script:Failures
