// Set-up and limits of this process.
#pragma once

namespace quelta::platform {

/** Prepares the process. Called at the start of main, before other threads exist.

    On Linux: writing to a closed connection or pipe fails instead of raising SIGPIPE; the three
    standard descriptors are open, so that no socket can take their numbers; ended children remain
    until they are reaped. On Windows: no error of this process or its children shows a dialog. */
void prepareProcess();

/** Returns how many more descriptors (files, sockets) this process may open. */
int countFreeDescriptors();

} // namespace quelta::platform
