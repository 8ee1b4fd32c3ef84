// Converts bytes of unknown encoding to UTF-8 that is safe in JUCE strings: malformed UTF-8 makes
// JUCE read past the end.
#pragma once

#include <string>
#include <string_view>

namespace quelta {

/** Whether `text` is UTF-8 that is safe in JUCE strings. False if it contains a NUL. */
bool isValidUtf8(const std::string& text);

/** Truncates `bytes` at the first NUL. Returns the rest unchanged if it is valid UTF-8, otherwise
    interprets it as Latin-1, the most likely encoding, and converts it. */
std::string toValidUtf8(std::string_view bytes);

} // namespace quelta
