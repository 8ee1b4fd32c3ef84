#include "farm_view/RoundTripHistogram.h"

#include <algorithm>
#include <numeric>

namespace quelta::farmview {

void RoundTripHistogram::add(Duration duration)
{
    const auto seconds = std::chrono::duration<double>(duration).count();
    const auto limit = std::lower_bound(limits.begin(), limits.end(), seconds);

    if (limit != limits.end())
        ++buckets[static_cast<size_t>(limit - limits.begin())];

    ++count;
    sum += duration;
}

uint64_t RoundTripHistogram::countUpTo(size_t index) const
{
    const auto end = buckets.begin() + static_cast<std::ptrdiff_t>(index + 1);
    return std::accumulate(buckets.begin(), end, uint64_t{0});
}

} // namespace quelta::farmview
