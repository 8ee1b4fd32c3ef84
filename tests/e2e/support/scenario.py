"""What the stand-in slave is told to do, as the text of its scenario file."""

SLAVE_VERSION = 4000000
GPUS = 1

QUICK_INFORMATION = "connect\ninfo\nwait 300\nexit 0\n"

# Reports, stays silent for long enough to be seen as initialised, then beats until it is stopped.
QUICK_SERVICE = "connect\ninfo\nwait 2500\nbeat 1000\n"

# A process that does nothing by itself: the test speaks to the daemon in its place.
PUPPET = "hang\n"


def scenario(run=QUICK_SERVICE, information=QUICK_INFORMATION, settings=""):
    return f"[info]\n{information}\n[run]\n{settings}\n{run}\n"
