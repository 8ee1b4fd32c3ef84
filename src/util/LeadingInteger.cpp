#include "util/LeadingInteger.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace quelta {

int32_t parseLeadingInt32(const char* text)
{
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(
        std::clamp<int64_t>(parseLeadingInt64(text), Limits::min(), Limits::max()));
}

int64_t parseLeadingInt64(const char* text)
{
    static_assert(sizeof(long long) == sizeof(int64_t));
    return std::strtoll(text, nullptr, 10);
}

} // namespace quelta
