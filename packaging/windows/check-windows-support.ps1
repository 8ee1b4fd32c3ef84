# What check-windows.ps1 needs to start the programs, to wait for them and to end them.

$Limit = 60 # seconds, for every wait
$Work = Join-Path $env:TEMP "quelta-check-$PID"
$UsualFlags = 'daemon daemonDetail logPrefix logToFile logFlushTime=200'
$Programs = 'quelta_daemon.exe', 'quelta_master.exe', 'quelta_standin_slave.exe'
$Utf8 = New-Object System.Text.UTF8Encoding $false

function Skip([string] $reason) { throw "SKIP: $reason" }

function Expect([bool] $condition, [string] $what) {
    if (-not $condition) { throw "expected $what" }
}

function Wait-Until([scriptblock] $condition, [string] $what, [int] $seconds = $Limit) {
    $clock = [Diagnostics.Stopwatch]::StartNew()
    while (-not (& $condition)) {
        if ($clock.Elapsed.TotalSeconds -gt $seconds) { throw "waited $seconds s in vain until $what" }
        Start-Sleep -Milliseconds 100
    }
    return [Math]::Round($clock.Elapsed.TotalSeconds, 1)
}

# A folder with copies of the programs and these log flags.
function New-Node([string] $name, [string] $flags = $UsualFlags) {
    $folder = Join-Path $Work $name
    New-Item -ItemType Directory -Force -Path $folder | Out-Null
    foreach ($program in $Programs) { Copy-Item (Join-Path $PSScriptRoot $program) $folder }
    [IO.File]::WriteAllText((Join-Path $folder 'quelta_daemon_log_flags.txt'), $flags)
    return $folder
}

# The daemon keeps the file open for writing, so a reader has to share that.
function Read-Shared([string] $path) {
    if (-not (Test-Path -LiteralPath $path)) { return ,(New-Object byte[] 0) }
    $stream = [IO.File]::Open($path, 'Open', 'Read', 'ReadWrite')
    try {
        $copy = New-Object IO.MemoryStream
        $stream.CopyTo($copy)
        return ,$copy.ToArray()
    } finally { $stream.Dispose() }
}

function Read-Log([string] $folder) { return $Utf8.GetString((Read-Shared (Join-Path $folder 'quelta_daemon_log.txt'))) }

function Wait-Log([string] $folder, [string] $text) {
    Wait-Until { (Read-Log $folder).Contains($text) } "the log in $folder holds '$text'" | Out-Null
}

function Get-Arguments([int] $port, [string] $alias = 'check') {
    return "--port $port --slave quelta_standin_slave.exe --alias `"$alias`""
}

# In a console of its own, which is hidden.
function Start-Daemon([string] $folder, [int] $port = $Port) {
    $process = Start-Process -FilePath (Join-Path $folder 'quelta_daemon.exe') -ArgumentList (Get-Arguments $port) `
        -WorkingDirectory $folder -WindowStyle Hidden -PassThru
    $process.Handle | Out-Null # or the exit code cannot be read later
    Wait-Log $folder 'start listening for masters on port'
    return $process
}

# Without a window, its output in pipes.
function Start-Piped([string] $file, [string] $arguments) {
    $start = New-Object Diagnostics.ProcessStartInfo
    $start.FileName = $file
    $start.Arguments = $arguments
    $start.WorkingDirectory = Split-Path $file
    $start.UseShellExecute = $false
    $start.CreateNoWindow = $true
    $start.RedirectStandardOutput = $true
    $start.RedirectStandardError = $true
    $start.StandardOutputEncoding = $Utf8
    $start.StandardErrorEncoding = $Utf8
    return [Diagnostics.Process]::Start($start)
}

# Runs a program to its end. Gives its exit code, its output and its errors.
function Invoke-Program([string] $file, [string] $arguments) {
    $process = Start-Piped $file $arguments
    $output = $process.StandardOutput.ReadToEndAsync()
    $errors = $process.StandardError.ReadToEndAsync()
    if (-not $process.WaitForExit($Limit * 1000)) {
        $process.Kill()
        throw "$file $arguments has not ended within $Limit s"
    }
    return @{ Code = $process.ExitCode; Output = $output.Result; Errors = $errors.Result }
}

function Wait-Line([Diagnostics.Process] $process, [string] $pattern) {
    $clock = [Diagnostics.Stopwatch]::StartNew()
    $all = ''
    while ($clock.Elapsed.TotalSeconds -lt $Limit) {
        $line = $process.StandardOutput.ReadLineAsync()
        if (-not $line.Wait($Limit * 1000) -or $null -eq $line.Result) { break }
        if ($line.Result -match $pattern) { return $line.Result }
        $all += $line.Result + ' | '
    }
    throw "no line '$pattern' came, but: $all"
}

# A master that holds the slave; returns once the slave runs.
function Start-Hold([string] $folder, [int] $port = $Port) {
    $hold = Start-Piped (Join-Path $folder 'quelta_master.exe') "hold 127.0.0.1:$port"
    $listening = Wait-Line $hold 'listening as '
    Wait-Line $hold ' running$' | Out-Null
    Expect (@(Get-Slaves).Count -eq 1) 'one slave to run'
    return @{ Process = $hold; Address = ($listening -replace '^.*listening as ', '') }
}

function Invoke-Scan([string] $folder, [int] $port = $Port) {
    $scan = Invoke-Program (Join-Path $folder 'quelta_master.exe') "scan 127.0.0.1:$port --json --timeout 30"
    Expect ($scan.Code -eq 0) "the scan to succeed, not status $($scan.Code): $($scan.Output) $($scan.Errors)"
    $nodes = $scan.Output | ConvertFrom-Json # an array, or its only element, by the version of PowerShell
    return @($nodes)[0]
}

# Only processes that run from this check's folder.
function Get-Ours([string] $name) {
    return Get-Process -Name $name -ErrorAction SilentlyContinue |
        Where-Object { $_.Path -like "*\$(Split-Path -Leaf $Work)\*" } # %TEMP% may be a short name
}

function Get-Slaves { return Get-Ours 'quelta_standin_slave' }

function Wait-NoSlave { return Wait-Until { @(Get-Slaves).Count -eq 0 } 'no slave is left' }

function Wait-End([Diagnostics.Process] $process) {
    $seconds = Wait-Until { $process.HasExited } 'the process has ended'
    return "ended with status $($process.ExitCode) after $seconds s"
}

function Stop-Everything {
    foreach ($name in 'quelta_master', 'quelta_daemon', 'quelta_standin_slave') {
        Get-Ours $name | Stop-Process -Force -ErrorAction SilentlyContinue
    }
}

# Another process does it, because a process has one console only.
function Send-CtrlC([Diagnostics.Process] $process) {
    $file = Join-Path $Work 'ctrl-c.ps1'
    [IO.File]::WriteAllText($file, @'
param([uint32] $Target)
Add-Type -Namespace Quelta -Name Kernel -MemberDefinition '
    [DllImport("kernel32.dll")] public static extern bool FreeConsole();
    [DllImport("kernel32.dll")] public static extern bool AttachConsole(uint process);
    [DllImport("kernel32.dll")] public static extern bool SetConsoleCtrlHandler(System.IntPtr handler, bool ignore);
    [DllImport("kernel32.dll")] public static extern bool GenerateConsoleCtrlEvent(uint kind, uint group);'
[Quelta.Kernel]::FreeConsole() | Out-Null
if (-not [Quelta.Kernel]::AttachConsole($Target)) { exit 1 }
[Quelta.Kernel]::SetConsoleCtrlHandler([IntPtr]::Zero, $true) | Out-Null
if (-not [Quelta.Kernel]::GenerateConsoleCtrlEvent(0, 0)) { exit 2 }
Start-Sleep -Seconds 1
'@)
    $sent = Start-Process powershell.exe -WindowStyle Hidden -PassThru -ArgumentList `
        "-NoProfile -ExecutionPolicy Bypass -File `"$file`" $($process.Id)"
    $sent.Handle | Out-Null
    Expect ($sent.WaitForExit($Limit * 1000)) 'the sender of Ctrl-C to end'
    Expect ($sent.ExitCode -eq 0) "Ctrl-C to be sent, not status $($sent.ExitCode)"
}

# The launch of a file that is no slave; gives the daemon's line.
function Get-LaunchError([string] $folder, [string] $slave) {
    $ran = Invoke-Program (Join-Path $folder 'quelta_daemon.exe') "--port $Port --slave `"$slave`""
    Expect ($ran.Code -eq 0) "status 0, not $($ran.Code)"
    $lines = @(($ran.Output + $ran.Errors) -split "`r?`n" | Where-Object { $_ -match 'failed to launch|is not an existing file' })
    Expect ($lines.Count -gt 0) "a line about the launch, not: $($ran.Output)"
    return $lines[0].Trim()
}
