#include "platform/ChildProcess.h"

#include <windows.h>

#include <vector>

namespace quelta::platform {

namespace {

std::vector<wchar_t> toWritableUtf16(const juce::String& text)
{
    const auto* const begin = text.toWideCharPointer();
    return {begin, begin + wcslen(begin) + 1};
}

/** Returns null on failure. Members may start processes outside the job, but only explicitly. */
HANDLE createKillOnCloseJob()
{
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags =
        JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_BREAKAWAY_OK;
    auto* const job = CreateJobObjectW(nullptr, nullptr);

    if (SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits)) !=
        FALSE)
        return job;

    if (job != nullptr)
        CloseHandle(job);

    return nullptr;
}

/** A job that kills its members when its only handle is closed. The daemon never closes the
    handle, so Windows does when the daemon ends, for whatever reason. The daemon joins the job
    itself: its children then belong to the job from the moment they are created. */
struct JobOfSlaves
{
    /** Adds `slave`, unless it is a member through this process. This process cannot join if it
        runs in a job that forbids nesting. Returns 0, or the system's error number. */
    DWORD add(HANDLE slave) const
    {
        if (hasThisProcess || AssignProcessToJobObject(job, slave) != FALSE)
            return 0;

        const auto error = GetLastError();

        // A slave that has ended cannot join a job and need not.
        return WaitForSingleObject(slave, 0) == WAIT_OBJECT_0 ? 0 : error;
    }

    const HANDLE job = createKillOnCloseJob();
    const bool hasThisProcess = AssignProcessToJobObject(job, GetCurrentProcess()) != FALSE;
};

} // namespace

struct ChildProcess::Handle
{
    HANDLE process = nullptr;
    DWORD id = 0;
    DWORD jobError = 0;
};

ChildProcess::ChildProcess() : handle(std::make_unique<Handle>()) {}

// The handles of the process and of its first thread are deliberately never closed, which costs
// two handles a launch.
ChildProcess::~ChildProcess()
{
    if (isRunning())
        kill();
}

int ChildProcess::launch(const juce::File& executable, const juce::String& commandLine)
{
    static const JobOfSlaves jobOfSlaves;

    const auto path = toWritableUtf16(executable.getFullPathName());
    const auto folder = toWritableUtf16(executable.getParentDirectory().getFullPathName());
    auto text = toWritableUtf16(commandLine);

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};

    const auto created = CreateProcessW(path.data(), text.data(), nullptr, nullptr, FALSE, 0,
                                        nullptr, folder.data(), &startup, &process);

    if (created == FALSE || process.hProcess == nullptr)
    {
        // Some failures leave the error number 0, which means success to callers.
        const auto error = GetLastError();
        return static_cast<int>(error != 0 ? error : ERROR_GEN_FAILURE);
    }

    handle->jobError = jobOfSlaves.add(process.hProcess);
    handle->process = process.hProcess;
    handle->id = process.dwProcessId;
    return 0;
}

int ChildProcess::getJobError() const
{
    return static_cast<int>(handle->jobError);
}

bool ChildProcess::isRunning()
{
    DWORD exitCode = 0;
    return handle->process != nullptr && GetExitCodeProcess(handle->process, &exitCode) != FALSE &&
           exitCode == STILL_ACTIVE;
}

uint32_t ChildProcess::getId() const
{
    return handle->id;
}

std::string ChildProcess::describeEnd() const
{
    DWORD exitCode = 0;
    GetExitCodeProcess(handle->process, &exitCode);

    // From here on exit codes are NTSTATUS codes of fatal exceptions, usually written in
    // hexadecimal.
    constexpr DWORD firstFault = 0x80000000;
    const auto number = static_cast<juce::int64>(exitCode);
    return "exit status " + (exitCode < firstFault
                                 ? juce::String(number)
                                 : "0x" + juce::String::toHexString(number).toUpperCase())
                                .toStdString();
}

void ChildProcess::kill()
{
    TerminateProcess(handle->process, 0);
}

void reapKilledChildren()
{
    // Windows has no zombies to reap.
}

} // namespace quelta::platform
