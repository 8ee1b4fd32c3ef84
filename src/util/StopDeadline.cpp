#include "util/StopDeadline.h"

#include <atomic>
#include <limits>

#include "platform/AwakeClock.h"

namespace quelta {

namespace {

constexpr auto noStopDeadline = std::numeric_limits<int64_t>::max();

std::atomic<int64_t> stopDeadline{noStopDeadline};

} // namespace

void setStopDeadline(std::optional<int64_t> awakeMilliseconds)
{
    stopDeadline = awakeMilliseconds.value_or(noStopDeadline);
}

bool hasStopDeadlinePassed()
{
    return platform::getAwakeMilliseconds() >= stopDeadline;
}

} // namespace quelta
