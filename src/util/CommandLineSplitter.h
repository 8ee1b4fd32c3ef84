// Splits a command line into arguments as the Windows C runtime does, so that a slave sees the same
// arguments on every system.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quelta {

/** Returns the arguments, the program name first. Accepts any bytes.

    In the program name, quotes group and are removed; backslashes are literal. After it, blanks and
    tabs separate arguments, and quotes group. Backslashes are literal unless a quote follows them:
    then each pair is one backslash, and an odd one makes the quote literal. Two quotes inside
    quotes are one literal quote, and the quoted part continues. */
std::vector<std::string> splitCommandLine(std::string_view commandLine);

} // namespace quelta
