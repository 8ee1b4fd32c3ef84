#include <sys/stat.h>

#include "ContainmentWays.h"

namespace quelta::test {

namespace {

/** A shell script that is run in new namespaces and ends by running the command. */
juce::StringArray makePrefix(const char* namespaces, const juce::String& script)
{
    return {"unshare", namespaces, "sh", "-ec", script + "\nexec \"$@\"", "sh"};
}

// An empty file system hides whatever is mounted below.
constexpr auto hideControlGroups =
    "for folder in $(awk '/ - cgroup2 / { print $5 }' "
    "/proc/self/mountinfo); do mount -t tmpfs none $folder; done\n";

// Root leaves the groups of a running systemd alone.
constexpr auto ownControlGroups =
    "mkdir -p /run/systemd; mount -t tmpfs none /run/systemd\n"
    "mount -t cgroup2 none /sys/fs/cgroup";
constexpr auto groupsOfSystemd =
    "mkdir -p /run/systemd; mount -t tmpfs none /run/systemd\n"
    "mkdir /run/systemd/system\n"
    "mount -t cgroup2 none /sys/fs/cgroup";

// A user namespace may not mount /proc anew if a part of it is hidden from outside.
constexpr auto maskedProc =
    "mount -t tmpfs none /proc/tty\n"
    "set -- unshare -Ur \"$@\"";

constexpr auto noPidNamespaces = "echo 0 > /proc/sys/user/max_pid_namespaces";

} // namespace

const char* const crashText = "signal 6 (Aborted)";
const char* const killText = "signal 9 (Killed)";
const char* const missingFileText = "No such file or directory";
const char* const noProgramText = "Exec format error";

void makePublic(const std::string& folder)
{
    chmod(folder.c_str(), 0777);
}

std::vector<ContainmentWay> listContainmentWays()
{
    const juce::String hidden(hideControlGroups);
    const juce::StringArray asUser{"setpriv", "--reuid", "65534",
                                   "--regid", "65534",   "--clear-groups"};
    constexpr int many = 200;
    constexpr int few = 20;
    return {
        {"ControlGroup", "control group", makePrefix("-mC", ownControlGroups), many},
        {"GroupsOfSystemd", "PID namespace", makePrefix("-mC", groupsOfSystemd), few},
        {"PidNamespace", "PID namespace", makePrefix("-m", hidden), many},
        {"PidNamespaceOfUser", "PID namespace", asUser, few},
        {"SubReaperForMaskedProc", "sub-reaper", makePrefix("-m", hidden + maskedProc), few},
        {"SubReaper", "sub-reaper", makePrefix("-Urm", hidden + noPidNamespaces), many},
    };
}

} // namespace quelta::test
