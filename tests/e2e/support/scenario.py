"""Scenario files for the stand-in slave."""

SLAVE_VERSION = 4000000
GPUS = 1

# The daemon sends nothing during an information run, so there is no event to wait for: the slave
# stays for three of the daemon's polls, which notice that it is initialised.
QUICK_INFORMATION = "connect\ninfo\nwait 300\nexit 0\n"

# Reports, stays silent until it is considered initialised, then sends heartbeats until stopped.
QUICK_SERVICE = "connect\ninfo\nwait 2500\nbeat 1000\n"

# An idle process: the test talks to the daemon in its place.
PUPPET = "hang\n"


def scenario(
    run: str = QUICK_SERVICE, information: str = QUICK_INFORMATION, settings: str = ""
) -> str:
    return f"[info]\n{information}\n[run]\n{settings}\n{run}\n"
