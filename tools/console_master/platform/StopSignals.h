// Ctrl-C and termination as requests to stop.
#pragma once

#include "console_master/StopRequest.h"

namespace quelta {

/** From now on these signals go to `request`, which has to live as long as the process. A signal
    that the request does not take for a repetition ends the process as if nothing had been
    installed. */
void installStopSignals(StopRequest& request);

} // namespace quelta
