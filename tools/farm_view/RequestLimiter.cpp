#include "farm_view/RequestLimiter.h"

#include <algorithm>

namespace quelta::farmview {

bool RequestLimiter::admit(uint32_t client, Clock::time_point now)
{
    auto& bucket = buckets.try_emplace(client, Bucket{burst, now}).first->second;
    bucket = {tokensAt(bucket, now), now};

    if (bucket.tokens < 1)
        return false;

    --bucket.tokens;
    return true;
}

void RequestLimiter::expire(Clock::time_point now)
{
    std::erase_if(buckets,
                  [now](const auto& entry) { return tokensAt(entry.second, now) >= burst; });
}

double RequestLimiter::tokensAt(const Bucket& bucket, Clock::time_point now)
{
    const std::chrono::duration<double> passed = now - bucket.filledAt;
    return std::min(bucket.tokens + passed.count() * requestsPerSecond, burst);
}

} // namespace quelta::farmview
