#include "log/LogClock.h"

namespace quelta {

namespace {

LogClock activeClock = juce::Time::currentTimeMillis;

} // namespace

juce::int64 getLogTime()
{
    return activeClock();
}

void setLogClock(LogClock replacement)
{
    activeClock = replacement != nullptr ? replacement : juce::Time::currentTimeMillis;
}

} // namespace quelta
