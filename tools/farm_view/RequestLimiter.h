// Limits the requests of each client address by token buckets. No clock: the caller says what time
// it is. Not thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <unordered_map>

namespace quelta::farmview {

class RequestLimiter
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr double requestsPerSecond = 50;
    static constexpr double burst = 200;

    /** Counts a request of `client`; returns whether it is within the limits. */
    bool admit(uint32_t client, Clock::time_point now);

    /** Forgets clients whose buckets are full again, so memory is bounded by the request rate. */
    void expire(Clock::time_point now);

    size_t countClients() const { return buckets.size(); }

private:
    struct Bucket
    {
        double tokens = burst;
        Clock::time_point filledAt;
    };

    static double tokensAt(const Bucket& bucket, Clock::time_point now);

    std::unordered_map<uint32_t, Bucket> buckets;
};

} // namespace quelta::farmview
