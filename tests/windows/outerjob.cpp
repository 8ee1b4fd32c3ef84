// Runs the program that its arguments are the command line of, in a job, and stays when that
// program has ended, so that the job stays too. What is left in the job ends with this process.
#include <windows.h>

#include <cstdio>

namespace {

constexpr DWORD lifeTimeMs = 300'000;

/** What follows the first word of this process's command line. */
wchar_t* getArguments()
{
    auto* text = GetCommandLineW();
    const auto end = *text == L'"' ? *text++ : L' ';

    while (*text != L'\0' && *text != end)
        ++text;

    if (*text == end)
        ++text;

    while (*text == L' ')
        ++text;

    return text;
}

bool enterJob()
{
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    auto* const job = CreateJobObjectW(nullptr, nullptr);
    return SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits,
                                   sizeof(limits)) != FALSE &&
           AssignProcessToJobObject(job, GetCurrentProcess()) != FALSE;
}

} // namespace

int main()
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};

    if (!enterJob() || CreateProcessW(nullptr, getArguments(), nullptr, nullptr, FALSE, 0, nullptr,
                                      nullptr, &startup, &process) == FALSE)
        return 1;

    WaitForSingleObject(process.hProcess, lifeTimeMs);
    std::printf("outer job: the program has ended\n");
    std::fflush(stdout);
    Sleep(lifeTimeMs);
    return 0;
}
