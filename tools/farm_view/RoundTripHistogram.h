// A histogram of the time between a scan and its answer. Not thread-safe.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>

namespace quelta::farmview {

class RoundTripHistogram
{
public:
    using Duration = std::chrono::microseconds;

    /** The upper limits of the buckets in seconds; a last bucket has none. */
    static constexpr std::array limits{0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                       0.1,    0.25,  0.5,    1.0,   2.5,  5.0};

    void add(Duration duration);

    /** The number of round trips up to limits[index]. */
    uint64_t countUpTo(size_t index) const;
    uint64_t getCount() const { return count; }
    double getSumSeconds() const { return std::chrono::duration<double>(sum).count(); }

private:
    std::array<uint64_t, limits.size()> buckets{};
    uint64_t count = 0;
    Duration sum{0};
};

} // namespace quelta::farmview
