// The command line of the process.
#pragma once

#include <string>
#include <vector>

namespace quelta {

/** The program's name and its arguments: on Windows as UTF-8, from the UTF-16 command line of the
    process, because the text that main gets there has lost what the system's code page lacks; on
    Linux the bytes that main gets. */
std::vector<std::string> programArguments(int argc, const char* const* argv);

} // namespace quelta
