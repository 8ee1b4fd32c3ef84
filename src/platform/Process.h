// What a process of ours sets up for itself before anything else.
#pragma once

namespace quelta::platform {

/** Called first thing in main. A write to a connection or pipe whose reader is gone becomes an
    error of that write, not the end of the process; the three standard descriptors are open, so
    that no socket can take their place; ended children stay to be waited for; no fault of this
    process or its children shows a box. */
void prepareProcess();

/** How many more descriptors (files, sockets) this process may open. */
int countFreeDescriptors();

} // namespace quelta::platform
