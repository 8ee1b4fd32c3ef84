// Handles requests to end in JUCE's hidden message window. JUCE leaves WM_CLOSE to Windows, which
// destroys the window; the message loop would run on without messages or timers. No-ops on Linux,
// where JUCE has no such window. Message thread.
#pragma once

#include <functional>

namespace quelta::platform {

/** Turns WM_CLOSE into a quit request. When the session ends, calls `endOfSession`, which must
    complete the shutdown before it returns, because Windows then ends the process. Returns false
    if JUCE could not create the window: no message and no timer would ever arrive. */
bool guardMessageWindow(const std::function<void()>& endOfSession);

/** Restores JUCE's handling. */
void releaseMessageWindow();

} // namespace quelta::platform
