// Replaces the render slave: starts a copy of itself outside the daemon's job, prints whether
// Windows allows that, and waits to be ended, as the copy does.
#include <windows.h>

#include <cstdio>

namespace {

constexpr DWORD lifeTimeMs = 60'000;

void startCopy()
{
    wchar_t program[1'024] = {};
    GetModuleFileNameW(nullptr, program, 1'024);
    wchar_t commandLine[] = L"breakaway escaped";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};

    if (CreateProcessW(program, commandLine, nullptr, nullptr, FALSE, CREATE_BREAKAWAY_FROM_JOB,
                       nullptr, nullptr, &startup, &process) != FALSE)
        std::printf("breakaway: started\n");
    else
        std::printf("breakaway: error %lu\n", GetLastError());

    std::fflush(stdout);
}

} // namespace

int main(int count, char**)
{
    if (count != 2) // the copy has one argument, a slave has more
        startCopy();

    Sleep(lifeTimeMs);
    return 0;
}
