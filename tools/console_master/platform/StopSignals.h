// Turns Ctrl-C and termination signals into stop requests.
#pragma once

#include "console_master/StopRequest.h"

namespace quelta {

/** Passes these signals to `request` from now on, which must live as long as the process. If the
    request says that the program must end at once, the signal's default action follows. */
void installStopSignals(StopRequest& request);

} // namespace quelta
