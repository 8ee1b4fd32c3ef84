// Makes a program's output safe for terminals and logs.
#pragma once

#include <string>
#include <string_view>

namespace quelta::execslave {

/** Returns valid UTF-8 without control characters: a text that is not UTF-8 is taken for Latin-1,
    and each control character but the tab becomes a question mark. */
std::string cleanText(std::string_view bytes);

} // namespace quelta::execslave
