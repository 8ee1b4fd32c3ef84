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

/** Null if the system refuses it. A member may start a process outside the job by asking for
    that. */
HANDLE createJobThatEndsWithItsHandle()
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

/** A job whose members end with its only handle. The handle is never closed, so the system closes
    it when this process ends, however that comes about. This process is a member itself, and so is
    all that it starts, from its first moment on. */
struct JobOfSlaves
{
    /** Adds a slave by itself if this process could not join, because the job in which it was
        started forbids further jobs. Returns 0, or the system's error number. */
    DWORD take(HANDLE slave) const
    {
        if (hasThisProcess || AssignProcessToJobObject(job, slave) != FALSE)
            return 0;

        const auto error = GetLastError();

        // A slave that has ended can join no job and needs none.
        return WaitForSingleObject(slave, 0) == WAIT_OBJECT_0 ? 0 : error;
    }

    const HANDLE job = createJobThatEndsWithItsHandle();
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

// Neither the process's handle nor that of its first thread is ever closed; two handles a launch
// are the price.
ChildProcess::~ChildProcess()
{
    if (isRunning())
        kill();
}

int ChildProcess::launch(const juce::File& executable, const juce::String& commandLine)
{
    static const JobOfSlaves slavesEndWithThisProcess;

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
        // The callers take 0 for a success.
        const auto error = GetLastError();
        return static_cast<int>(error != 0 ? error : ERROR_GEN_FAILURE);
    }

    handle->jobError = slavesEndWithThisProcess.take(process.hProcess);
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

    // Windows numbers the faults that end a process from here on, and everybody knows them in
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
    // An ended process needs nobody to wait for it here.
}

} // namespace quelta::platform
