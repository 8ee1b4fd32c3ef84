// How a program's parameters reach the framework.
#pragma once

namespace quelta::platform {

/** Runs the framework's application, whose factory has been set, until it ends; gives the exit
    status. */
int runApplication(int argc, char** argv);

} // namespace quelta::platform
