// Windows: texts as its functions take them.
#pragma once

#include <string>
#include <vector>

namespace quelta::execslave {

std::wstring toWide(const std::string& utf8);
std::string toUtf8(const std::wstring& wide);

/** Joins arguments into a command line that CommandLineToArgvW and the C runtime split into the
    same arguments. */
std::wstring joinCommandLine(const std::vector<std::string>& arguments);

} // namespace quelta::execslave
