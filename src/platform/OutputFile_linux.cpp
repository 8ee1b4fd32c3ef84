#include "platform/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace quelta::platform {

namespace {

constexpr mode_t newFileMode = 0644;

intptr_t openPath(const juce::File& file, int flags)
{
    return ::open(file.getFullPathName().toRawUTF8(), O_RDWR | O_CREAT | O_CLOEXEC | flags,
                  newFileMode);
}

int toDescriptor(intptr_t handle)
{
    return static_cast<int>(handle);
}

} // namespace

bool OutputFile::open(const juce::File& file)
{
    close();
    handle = openPath(file, 0);
    return goToEnd();
}

bool OutputFile::openInSharedFolder(const juce::File& file)
{
    close();
    handle = openPath(file, O_NOFOLLOW);
    struct stat found = {};

    // Another user may have planted a hard link to a file of this user.
    if (isOpen() && (fstat(toDescriptor(handle), &found) != 0 || !S_ISREG(found.st_mode) ||
                     found.st_uid != geteuid() || found.st_nlink != 1))
        close();

    return goToEnd();
}

/** Closes the file if it is not seekable, such as a pipe. */
bool OutputFile::goToEnd()
{
    if (isOpen() && lseek(toDescriptor(handle), 0, SEEK_END) < 0)
        close();

    return isOpen();
}

size_t OutputFile::write(const char* bytes, size_t count)
{
    size_t written = 0;

    while (written < count)
    {
        const auto result = ::write(toDescriptor(handle), bytes + written, count - written);

        if (result > 0)
            written += static_cast<size_t>(result);
        else if (result == 0 || errno != EINTR)
            break;
    }

    return written;
}

void OutputFile::removeLast(size_t count)
{
    const auto end = lseek(toDescriptor(handle), -static_cast<off_t>(count), SEEK_CUR);

    if (end < 0)
        return;

    [[maybe_unused]] const auto result = ftruncate(toDescriptor(handle), end); // best effort
}

void OutputFile::sync()
{
    fsync(toDescriptor(handle));
}

void OutputFile::close()
{
    if (isOpen())
        ::close(toDescriptor(std::exchange(handle, closed)));
}

} // namespace quelta::platform
