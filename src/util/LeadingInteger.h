// The decimal integer at the front of a text: leading white space and one sign are accepted, the
// first character that is no digit ends it, no digit at all gives 0, and what does not fit
// saturates. The same on every system, unlike the widths of the standard library's integers.
#pragma once

#include <cstdint>

namespace quelta {

int32_t parseLeadingInt32(const char* text);
int64_t parseLeadingInt64(const char* text);

} // namespace quelta
