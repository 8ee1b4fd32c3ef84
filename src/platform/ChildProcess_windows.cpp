#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include "platform/ChildProcess.h"

#include <vector>

namespace quelta::platform {

namespace {

std::vector<wchar_t> toWritableUtf16(const juce::String& text)
{
    const auto* const begin = text.toWideCharPointer();
    return {begin, begin + wcslen(begin) + 1};
}

/** The job whose members end with this process: its only handle is never closed, so the system closes it. */
HANDLE getJobOfSlaves()
{
    static const HANDLE job = [] {
        const auto created = CreateJobObjectW(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(created, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
        return created;
    }();

    return job;
}

} // namespace

struct ChildProcess::Handle
{
    HANDLE process = nullptr;
};

ChildProcess::ChildProcess() : handle(std::make_unique<Handle>()) {}

// Neither the process's handle nor that of its first thread is ever closed; two handles a launch are the
// price.
ChildProcess::~ChildProcess() = default;

int ChildProcess::launch(const juce::File& executable, const juce::String& commandLine)
{
    const auto path = toWritableUtf16(executable.getFullPathName());
    const auto folder = toWritableUtf16(executable.getParentDirectory().getFullPathName());
    auto text = toWritableUtf16(commandLine);

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};

    const auto created = CreateProcessW(path.data(), text.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                        folder.data(), &startup, &process);

    if (created == FALSE || process.hProcess == nullptr)
        return static_cast<int>(GetLastError());

    handle->process = process.hProcess;
    AssignProcessToJobObject(getJobOfSlaves(), process.hProcess);
    return 0;
}

bool ChildProcess::isRunning()
{
    DWORD exitCode = 0;
    return handle->process != nullptr && GetExitCodeProcess(handle->process, &exitCode) != FALSE &&
           exitCode == STILL_ACTIVE;
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
