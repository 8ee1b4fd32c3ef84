// A process that gets no more threads, as on a machine that has run out of them.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace quelta::test {

/** While it lives, this process cannot start a thread. */
class NoMoreThreads
{
public:
    NoMoreThreads();
    ~NoMoreThreads();

    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

    /** Whether this system, and a program built like this one, can be brought to that. */
    static bool arePossible();

private:
    void waitForTheEnd();

    std::mutex lock; ///< Guards `ending`.
    std::condition_variable changed;
    bool ending = false;
    std::vector<std::thread> taken; ///< They use what would be left for others.
};

} // namespace quelta::test
