// What to start: a program with its arguments, folder and environment. Plain data.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quelta::execslave {

struct ProgramStart
{
    std::vector<std::string> command; ///< The program, looked up in PATH, and its arguments. UTF-8.
    std::string folder;               ///< Empty: the current folder.
    /** Variables to set in the inherited environment. An empty value removes the variable. */
    std::map<std::string, std::string> environment;
};

} // namespace quelta::execslave
