#include "farm_view/Time.h"

#include <array>
#include <cstdio>

namespace quelta::farmview {

std::string formatTime(Time time)
{
    using namespace std::chrono;
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    std::array<char, 64> text{};
    const auto size = std::snprintf(
        text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
        static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
        static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
        static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
        static_cast<int>(clock.subseconds().count()));
    return {text.data(), static_cast<size_t>(size)};
}

double toSeconds(Time time)
{
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

} // namespace quelta::farmview
