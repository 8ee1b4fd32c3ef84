// Runs a program, whose command line is its arguments, in a job. Keeps running after that program
// has ended, and with it the job. When this process ends, so does everything left in the job.
#include <windows.h>

#include <cstdio>

namespace {

constexpr DWORD lifeTimeMs = 300'000;

/** This process's command line after its first word. */
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
