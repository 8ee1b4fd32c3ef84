// Repeats a check on a thread of its own until it is destroyed.
#pragma once

#include <chrono>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>

namespace quelta::execslave {

class CheckLoop
{
public:
    /** Runs one check within `limit`, or until it is asked to stop. Returns why it has failed, or
        an empty string. */
    using Check =
        std::function<std::string(std::chrono::milliseconds limit, const std::stop_token& stop)>;

    /** Takes the result of each check, on the loop's thread. */
    using Report = std::function<void(const std::string& failure)>;

    struct Rhythm
    {
        std::chrono::milliseconds firstAfter; ///< Until the first check begins.
        std::chrono::milliseconds period; ///< From one check to the next, unless it takes longer.
        std::chrono::milliseconds limit;  ///< Of each check.
    };

    CheckLoop(Rhythm rhythm, Check check, Report report);

    /** Interrupts the current check, whose result is not reported, and ends the thread. */
    ~CheckLoop() = default;

    CheckLoop(const CheckLoop&) = delete;
    CheckLoop& operator=(const CheckLoop&) = delete;

private:
    std::jthread thread;
};

} // namespace quelta::execslave
