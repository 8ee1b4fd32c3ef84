#include "platform/Paths.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <string_view>

#include "util/ValidUtf8.h"

namespace quelta::platform {

namespace {

/** The kernel appends this to the path of a file that has been deleted. */
constexpr std::string_view deletedMark = " (deleted)";

juce::String toJuceString(const std::string& bytes)
{
    return juce::String::fromUTF8(toValidUtf8(bytes).c_str());
}

/** Does not use argv[0], which the caller chooses freely. */
std::string findExecutable()
{
    char path[PATH_MAX];
    const auto length = readlink("/proc/self/exe", path, sizeof(path));

    if (length < 0) // some containers have no /proc
        return realpath(reinterpret_cast<const char*>(getauxval(AT_EXECFN)), path) != nullptr ? path
                                                                                              : "";

    std::string found(path, static_cast<size_t>(length));

    if (found.ends_with(deletedMark) && access(found.c_str(), F_OK) != 0)
        found.resize(found.size() - deletedMark.size());

    return found;
}

/** Returns the folder's own path if it is valid UTF-8. Otherwise opens the folder, for good, and
    returns the path of the descriptor. */
juce::String getSafePath(const std::string& folder)
{
    if (isValidUtf8(folder))
        return toJuceString(folder);

    return "/proc/self/fd/" + juce::String(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

} // namespace

bool absolutePathsHaveRoot()
{
    return false;
}

char nativeSeparator()
{
    return '/';
}

juce::File executableFile()
{
    static const auto file = [] {
        const auto path = findExecutable();
        const auto separator = path.rfind('/');

        if (separator == std::string::npos)
            return juce::File();

        return juce::File(getSafePath(path.substr(0, separator)) + "/" +
                          toJuceString(path.substr(separator + 1)));
    }();
    return file;
}

juce::File currentFolder()
{
    char path[PATH_MAX];

    if (getcwd(path, sizeof(path)) != nullptr && isValidUtf8(path))
        return juce::File(toJuceString(path));

    // With the PID instead of "self", because the path is also used in the slave's process.
    return juce::File("/proc/" + juce::String(getpid()) + "/cwd");
}

juce::File resolvePath(const juce::String& path)
{
    const auto* const home = std::getenv("HOME");

    // JUCE would replace "~" by $HOME unchecked.
    if (path.startsWithChar('~') && home != nullptr && !isValidUtf8(home))
        return currentFolder().getChildFile("./" + path);

    return currentFolder().getChildFile(path);
}

juce::File temporaryFolder()
{
    const auto* const chosen = std::getenv("TMPDIR");
    return resolvePath(chosen != nullptr && *chosen != '\0' ? getSafePath(chosen) : "/tmp");
}

} // namespace quelta::platform
