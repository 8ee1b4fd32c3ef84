// The arguments of the process as UTF-8.
#pragma once

#include <string>
#include <vector>

namespace quelta {

/** The program's name and its arguments. On Windows they come from the UTF-16 command line of the
    process, because main's arguments are in the ANSI code page, which lacks many characters. On
    Linux they are main's arguments, byte for byte. */
std::vector<std::string> programArguments(int argc, const char* const* argv);

} // namespace quelta
