// Windows: a program's environment and the file that its name means.
#pragma once

#include <string>

#include "exec_slave/ProgramStart.h"

namespace quelta::execslave {

/** The environment as CreateProcess takes it. */
std::wstring makeEnvironmentBlock(const ProgramStart& start);

/** The program's file; if there is none, a path for which the system says so. */
std::wstring chooseProgramPath(const ProgramStart& start);

} // namespace quelta::execslave
