// Turns Ctrl-C, termination and crash signals into quit requests of the message loop. Message
// thread, except for quitWasRequested.
#pragma once

namespace quelta::platform {

/** Removes JUCE's handler of Ctrl-C. Until installQuitHandlers, signals have their default
    effect. */
void restoreDefaultInterrupt();

/** Makes SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV and SIGTERM end the message loop; also SIGHUP
    unless it is ignored (Linux), and Ctrl-Break and the end of the console or session (Windows). A
    repetition within a second counts as the same request. A later one ends the process at once, so
    that users can abort a slow shutdown. Crash signals are handled only once: a real crash raises
    its signal again, which ends the process.

    Windows ends the process a few seconds after its console or session has ended. If the shutdown
    takes longer, `beforeForcedEnd` runs just before that, on a thread of the system.

    Returns 0, or the system's error number; signals then keep their default effect. */
int installQuitHandlers(void (*beforeForcedEnd)());

/** Restores the default effect of crash signals; also of the other signals, unless a quit has been
    requested: then a repetition keeps the effect described above. */
void resetQuitHandlers();

/** Whether a quit signal has arrived, even if the message loop has not handled it yet. Any
    thread. */
bool quitWasRequested();

} // namespace quelta::platform
