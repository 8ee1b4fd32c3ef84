// Parses the decimal integer at the front of a text, after optional white space and one sign.
// Returns 0 if there is no digit and saturates if the number is out of range. The result is the
// same on every system, unlike strtol's.
#pragma once

#include <cstdint>

namespace quelta {

int32_t parseLeadingInt32(const char* text);
int64_t parseLeadingInt64(const char* text);

} // namespace quelta
