#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <system_error>

#include "NoMoreThreads.h"

namespace quelta::test {

namespace {

/** Bytes: the stack of a thread or two and what a test allocates. */
constexpr rlim_t addressSpaceLeft = 16u << 20;

constexpr size_t maxThreads = 64;

rlim_t getAddressSpace()
{
    unsigned long pages = 0;
    auto* const file = std::fopen("/proc/self/statm", "r");
    const bool isRead = file != nullptr && std::fscanf(file, "%lu", &pages) == 1;

    if (file != nullptr)
        std::fclose(file);

    return isRead ? pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) : RLIM_INFINITY;
}

void limitAddressSpace(rlim_t bytes)
{
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_AS, &limit);
}

} // namespace

NoMoreThreads::NoMoreThreads()
{
    taken.reserve(maxThreads);
    limitAddressSpace(getAddressSpace() + addressSpaceLeft);

    try
    {
        while (taken.size() < maxThreads)
            taken.emplace_back([this] { waitForTheEnd(); });
    }
    catch (const std::system_error&)
    {
        // As intended: no thread is left.
    }
}

NoMoreThreads::~NoMoreThreads()
{
    {
        const std::lock_guard guard(lock);
        ending = true;
        changed.notify_all();
    }

    for (auto& thread : taken)
        thread.join();

    limitAddressSpace(RLIM_INFINITY);
}

bool NoMoreThreads::arePossible()
{
    constexpr rlim_t onlySanitizersMapMore = 1ull << 40;
    return getAddressSpace() < onlySanitizersMapMore;
}

void NoMoreThreads::waitForTheEnd()
{
    std::unique_lock guard(lock);
    changed.wait(guard, [this] { return ending; });
}

} // namespace quelta::test
