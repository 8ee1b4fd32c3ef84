// Makes starting threads fail, as on a machine that has run out of them.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace quelta::test {

/** This process cannot start a thread until the object is destroyed. */
class NoMoreThreads
{
public:
    NoMoreThreads();
    ~NoMoreThreads();

    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

    /** Whether this works on this system and in this build. */
    static bool arePossible();

private:
    void waitForTheEnd();

    std::mutex lock; ///< Guards `ending`.
    std::condition_variable changed;
    bool ending = false;
    std::vector<std::thread> taken; ///< They use up the remaining address space.
};

} // namespace quelta::test
