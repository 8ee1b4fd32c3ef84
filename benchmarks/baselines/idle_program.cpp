// The program that the exec slave runs here: prints the time of its first instruction, in
// nanoseconds of the monotonic clock, and then does nothing until a signal ends it.
#include <unistd.h>

#include <cstdio>
#include <ctime>

int main()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::printf("first instruction: %lld\n",
                1'000'000'000LL * now.tv_sec + static_cast<long long>(now.tv_nsec));
    std::fflush(stdout);

    for (;;)
        pause();
}
