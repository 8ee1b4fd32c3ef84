#include "platform/Process.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>

namespace quelta::platform {

void prepareProcess()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);

    // open() returns the lowest free descriptor: fills the standard three and stops above them.
    int descriptor = 0;

    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = open("/dev/null", O_RDWR);

    if (descriptor > STDERR_FILENO)
        close(descriptor);
}

int countFreeDescriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    auto* const directory = opendir("/proc/self/fd");

    if (directory == nullptr) // counting needs a free descriptor itself, and /proc
        return errno == EMFILE || errno == ENFILE ? 0 : std::numeric_limits<int>::max();

    constexpr rlim_t otherEntries = 3; // ".", ".." and the descriptor of `directory`
    rlim_t entries = 0;

    while (readdir(directory) != nullptr)
        ++entries;

    closedir(directory);
    const auto inUse = entries - std::min(entries, otherEntries);
    const auto allowed = std::min<rlim_t>(limit.rlim_cur, std::numeric_limits<int>::max());
    return static_cast<int>(allowed - std::min(allowed, inUse));
}

} // namespace quelta::platform
