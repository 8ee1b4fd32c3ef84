// JUCE's hidden window, through which Windows asks a program to end. JUCE passes such messages on
// to the system, which destroys the window for WM_CLOSE; the message loop would then run on without
// messages and timers. Message thread. On Linux there is no window and nothing to do.
#pragma once

#include <functional>

namespace quelta::platform {

/** From now on WM_CLOSE is a system's request to quit. When the session ends, `endOfSession` has to
    do the whole shutdown before it returns, because the system ends the process behind it. Returns
    false if JUCE could not make the window: no message and no timer would ever arrive. */
bool guardMessageWindow(const std::function<void()>& endOfSession);

/** Hands the window back to JUCE. */
void releaseMessageWindow();

} // namespace quelta::platform
