// One command-line text cut into arguments as the C runtime of Windows does it, so that a slave
// sees the same arguments on every system.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quelta {

/** The arguments of `commandLine`, the program's name first. In the name, quotes group and are
    dropped and nothing escapes. Behind it, blanks and tabs separate; quotes group; backslashes are
    literal unless a quote follows them, when two stand for one and an odd one makes the quote
    literal; two quotes inside quotes are one literal quote, and the quoted stretch goes on. Any
    bytes are accepted. */
std::vector<std::string> splitCommandLine(std::string_view commandLine);

} // namespace quelta
