// Linux: control groups (version 2), which hold process trees together.
#pragma once

#include <string>

namespace quelta::execslave {

/** Creates a group below that of this process, where that is delegated to it and the kernel can
    kill whole groups (since 5.14). Returns its folder, or an empty string. */
std::string createControlGroup();

/** Kills all processes of a group. */
void killControlGroup(const std::string& folder);

/** Removes a group with the groups below it. False if a process is left in it. */
bool removeControlGroup(const std::string& folder);

} // namespace quelta::execslave
