#include "platform/OutputFile.h"

#include <windows.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace quelta::platform {

namespace {

/** Other programs may read the file while it is open. */
intptr_t openPath(const juce::File& file, DWORD flags)
{
    static_assert(sizeof(HANDLE) == sizeof(intptr_t));
    return reinterpret_cast<intptr_t>(
        CreateFileW(file.getFullPathName().toWideCharPointer(), GENERIC_WRITE, FILE_SHARE_READ,
                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | flags, nullptr));
}

HANDLE toHandle(intptr_t handle)
{
    return reinterpret_cast<HANDLE>(handle);
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

    // Other users have no access to a user's temporary folder, but they do to that of services.
    // The flag opens a symbolic link itself, so that it can be recognised and refused.
    handle = openPath(file, FILE_FLAG_OPEN_REPARSE_POINT);
    BY_HANDLE_FILE_INFORMATION found{};

    if (isOpen() &&
        (GetFileInformationByHandle(toHandle(handle), &found) == FALSE ||
         (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 || found.nNumberOfLinks != 1))
        close();

    return goToEnd();
}

bool OutputFile::goToEnd()
{
    if (isOpen() && SetFilePointerEx(toHandle(handle), {}, nullptr, FILE_END) == FALSE)
        close();

    return isOpen();
}

size_t OutputFile::write(const char* bytes, size_t count)
{
    size_t written = 0;

    while (written < count)
    {
        const auto piece = std::min<size_t>(count - written, std::numeric_limits<int32_t>::max());
        DWORD result = 0;
        const auto succeeded = WriteFile(toHandle(handle), bytes + written,
                                         static_cast<DWORD>(piece), &result, nullptr);
        written += result;

        if (succeeded == FALSE || result == 0)
            break;
    }

    return written;
}

void OutputFile::removeLast(size_t count)
{
    LARGE_INTEGER distance{};
    distance.QuadPart = -static_cast<LONGLONG>(count);

    if (SetFilePointerEx(toHandle(handle), distance, nullptr, FILE_CURRENT) != FALSE)
        SetEndOfFile(toHandle(handle));
}

void OutputFile::sync()
{
    FlushFileBuffers(toHandle(handle));
}

void OutputFile::close()
{
    if (isOpen())
        CloseHandle(toHandle(std::exchange(handle, closed)));
}

} // namespace quelta::platform
