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

    // open() gives the lowest free descriptor, so this ends with the first one above the standard
    // three.
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

    if (directory == nullptr) // it takes a free descriptor to find out, and a /proc
        return errno == EMFILE || errno == ENFILE ? 0 : std::numeric_limits<int>::max();

    // Three entries are none of those in use afterwards: ".", ".." and the directory itself.
    rlim_t used = 0;

    while (readdir(directory) != nullptr)
        ++used;

    closedir(directory);
    const auto inUse = used - std::min<rlim_t>(used, 3);
    const auto allowed = std::min<rlim_t>(limit.rlim_cur, std::numeric_limits<int>::max());
    return static_cast<int>(allowed - std::min(allowed, inUse));
}

} // namespace quelta::platform
