#include "containment/platform/ProcessTools.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace quelta::test {

namespace {

namespace fs = std::filesystem;

long countEntries(const fs::path& folder)
{
    return std::distance(fs::directory_iterator(folder), {});
}

/** A folder that another mount hides may be unreadable. */
long countGroups(const fs::path& folder, const std::string& prefix)
{
    std::error_code error;
    long count = 0;

    for (const auto& entry : fs::directory_iterator(folder, error))
        if (entry.is_directory(error))
            count += (entry.path().filename().string().starts_with(prefix) ? 1 : 0) +
                     countGroups(entry.path(), prefix);

    return count;
}

/** The control groups that this process has made and not removed. */
long countGroups()
{
    std::ifstream mounts("/proc/self/mountinfo");
    const auto prefix = "quelta-" + std::to_string(getpid()) + "-";
    long count = 0;

    for (std::string line; std::getline(mounts, line);)
    {
        if (line.find(" - cgroup2 ") == std::string::npos)
            continue;

        std::istringstream fields(line);
        std::string folder;

        for (int i = 0; i < 5; ++i)
            fields >> folder;

        count += countGroups(folder, prefix);
    }

    return count;
}

std::string getChildren()
{
    std::ifstream file("/proc/thread-self/children");
    std::string children;
    std::getline(file, children);
    return children;
}

} // namespace

void ignoreEndRequests()
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        std::signal(number, SIG_IGN);
}

void makeSignalsAndDescriptorsUnusual()
{
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);

    for (const int number : {SIGHUP, SIGPIPE, SIGUSR2})
        std::signal(number, SIG_IGN);

    for (int i = 0; i < 3; ++i)
        [[maybe_unused]] const int descriptor = open("/dev/zero", O_RDWR); // not close-on-exec
}

void startOrphan(const std::vector<std::string>& command)
{
    auto arguments = command;
    std::vector<char*> argv;

    for (auto& argument : arguments)
        argv.push_back(argument.data());

    argv.push_back(nullptr);
    const auto child = fork();

    if (child == 0)
    {
        setsid();

        if (fork() == 0)
            execv(argv.front(), argv.data());

        _exit(0);
    }

    waitpid(child, nullptr, 0);
}

bool lockFile(const std::string& path)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    struct flock lock
    {};
    lock.l_type = F_WRLCK;
    return fcntl(file, F_SETLK, &lock) == 0; // children do not inherit it
}

bool isLocked(const std::string& path)
{
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock
    {};
    lock.l_type = F_WRLCK;
    const bool succeeded = file >= 0 && fcntl(file, F_GETLK, &lock) == 0;
    close(file);
    return succeeded && lock.l_type != F_UNLCK;
}

std::string describeResources()
{
    std::ostringstream text;
    text << "descriptors " << countEntries("/proc/self/fd") << ", threads "
         << countEntries("/proc/self/task") << ", children '" << getChildren() << "', groups "
         << countGroups();
    return text.str();
}

} // namespace quelta::test
