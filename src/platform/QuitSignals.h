// Ctrl-C, termination and crash signals as requests to end through the message loop. Message thread, except
// for quitWasRequested.
#pragma once

namespace quelta::platform {

/** Undoes what the framework has set up for Ctrl-C: until the handlers are installed, every signal has the
    system's default effect. */
void restoreDefaultInterrupt();

/** From now on SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV and SIGTERM ask the message loop to end. Each signal
    only once: its second occurrence has the default effect, so that a slow shutdown can be cut short and a
    real crash ends. */
void installQuitHandlers();

/** Back to default handling. */
void resetQuitHandlers();

/** Whether one of the signals has come, even if the message loop has not had time for it yet. Any thread. */
bool quitWasRequested();

} // namespace quelta::platform
