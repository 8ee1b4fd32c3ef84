#include "exec_slave/platform/ControlGroup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace quelta::execslave {

namespace {

namespace fs = std::filesystem;

/** The path of this process's group within the hierarchy; empty if there is none. */
std::string findOwnGroup()
{
    std::ifstream file("/proc/self/cgroup");

    for (std::string line; std::getline(file, line);)
        if (line.starts_with("0::/"))
            return line.substr(3);

    return {};
}

struct Mount
{
    std::string root; ///< The group at the top of the mount.
    std::string folder;
};

/** Every mount of the hierarchy, from lines such as
    "38 31 0:31 / /sys/fs/cgroup rw,nosuid shared:9 - cgroup2 cgroup2 rw". */
std::vector<Mount> findMounts()
{
    std::vector<Mount> mounts;
    std::ifstream file("/proc/self/mountinfo");

    for (std::string line; std::getline(file, line);)
    {
        if (line.find(" - cgroup2 ") == std::string::npos)
            continue;

        std::istringstream fields(line);
        std::string ignored;
        Mount mount;
        fields >> ignored >> ignored >> ignored >> mount.root >> mount.folder;
        mounts.push_back(mount);
    }

    return mounts;
}

/** The folders that show this process's group. Another mount may hide one of them. */
std::vector<std::string> findOwnFolders()
{
    const auto group = findOwnGroup();
    std::vector<std::string> folders;

    for (const auto& [root, folder] : findMounts())
    {
        // A group outside of the namespace has a path that begins with "/..".
        if (group.empty() || group.starts_with("/..") || root.starts_with("/.."))
            continue;

        if (root == "/")
            folders.push_back(folder + (group == "/" ? "" : group));
        else if (group == root || group.starts_with(root + "/"))
            folders.push_back(folder + group.substr(root.size()));
    }

    return folders;
}

bool isMarkedAsDelegated(const std::string& folder)
{
    for (const auto* const name : {"user.delegate", "trusted.delegate"})
    {
        char value = '0';

        if (getxattr(folder.c_str(), name, &value, sizeof(value)) == 1 && value == '1')
            return true;
    }

    return false;
}

/** A user may write only to groups that are delegated to him, but root may write to all. Where
    systemd manages the groups, it marks those that it leaves to others. */
bool isDelegated(const std::string& folder)
{
    if (geteuid() != 0 || !fs::exists("/run/systemd/system"))
        return true;

    std::error_code error;

    for (fs::path path = folder; fs::exists(path / "cgroup.procs", error);
         path = path.parent_path())
        if (isMarkedAsDelegated(path))
            return true;

    return false;
}

/** Starting a process in another group takes write access to the group of its parent. */
bool isUsable(const std::string& folder)
{
    return access((folder + "/cgroup.procs").c_str(), W_OK) == 0 && isDelegated(folder);
}

} // namespace

std::string createControlGroup()
{
    static std::atomic<unsigned> count{0};
    const auto name = "/quelta-" + std::to_string(getpid()) + "-" + std::to_string(++count);

    for (const auto& parent : findOwnFolders())
    {
        const auto folder = parent + name;

        if (!isUsable(parent) || mkdir(folder.c_str(), 0755) != 0)
            continue;

        if (access((folder + "/cgroup.kill").c_str(), W_OK) == 0)
            return folder;

        rmdir(folder.c_str());
    }

    return {};
}

void killControlGroup(const std::string& folder)
{
    const int file = open((folder + "/cgroup.kill").c_str(), O_WRONLY | O_CLOEXEC);

    if (file < 0)
        return;

    [[maybe_unused]] const auto written = write(file, "1", 1);
    close(file);
}

bool removeControlGroup(const std::string& folder)
{
    std::error_code error;

    for (const auto& entry : fs::directory_iterator(folder, error))
        if (entry.is_directory(error))
            removeControlGroup(entry.path());

    return rmdir(folder.c_str()) == 0 || errno == ENOENT;
}

} // namespace quelta::execslave
