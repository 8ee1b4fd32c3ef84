// Replaces the clock that stops while the machine sleeps with one that only advances by calls.
#pragma once

#include <atomic>

#include "platform/AwakeClock.h"

namespace quelta::test {

class FakeAwakeClock
{
public:
    explicit FakeAwakeClock(int64_t beginMs = platform::getAwakeMilliseconds())
    {
        nowMs = beginMs;
        platform::setAwakeClock([] { return nowMs.load(); });
    }

    ~FakeAwakeClock() { platform::setAwakeClock(nullptr); }

    FakeAwakeClock(const FakeAwakeClock&) = delete;
    FakeAwakeClock& operator=(const FakeAwakeClock&) = delete;

    void advance(int64_t ms) { nowMs += ms; }

private:
    static inline std::atomic<int64_t> nowMs{0};
};

} // namespace quelta::test
