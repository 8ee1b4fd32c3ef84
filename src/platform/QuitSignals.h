// Ctrl-C, termination and crash signals as requests to end through the message loop. Message
// thread, except for quitWasRequested.
#pragma once

namespace quelta::platform {

/** Undoes what JUCE has set up for Ctrl-C: until the handlers are installed, every signal has the
    system's default effect. */
void restoreDefaultInterrupt();

/** From now on SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV and SIGTERM ask the message loop to end; so
    do a hang-up that is not ignored (Linux), Ctrl-Break, and the end of the console or the session
    (Windows). A repetition within a second is the same request; a later one ends the process at
    once, so that a slow shutdown can be cut short. A crash signal is handled once only: a real
    crash raises it again.

    Windows ends the process a few seconds after its console or session has ended. If the shutdown
    takes longer, `beforeForcedEnd` is called just before that, on a thread of the system's.

    Returns 0, or the system's error number; signals then keep their default effect. */
int installQuitHandlers(void (*beforeForcedEnd)());

/** Back to default handling, at once for crash signals. For the others at once if none has come,
    else a second after the first. */
void resetQuitHandlers();

/** Whether one of the signals has come, even if the message loop has not had time for it yet. Any
    thread. */
bool quitWasRequested();

} // namespace quelta::platform
