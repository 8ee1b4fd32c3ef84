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

/** Puts this process into a job whose members end with its only handle. The handle is never closed, so the
    system closes it when this process ends, however that comes about. What this process starts is a member
    from its first moment on. */
bool joinJobOfSlaves()
{
    const auto job = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    return SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits)) !=
               FALSE &&
           AssignProcessToJobObject(job, GetCurrentProcess()) != FALSE;
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
    [[maybe_unused]] static const bool slavesEndWithThisProcess = joinJobOfSlaves();

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
