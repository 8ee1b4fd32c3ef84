// A file that is written at its end, unbuffered. Not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>

#include <juce_core/juce_core.h>

namespace quelta::platform {

class OutputFile
{
public:
    OutputFile() = default;
    ~OutputFile() { close(); }

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /** Opens the file, creating it if necessary. Returns false on failure. */
    bool open(const juce::File& file);

    /** Like open, but safe in a folder where other users can create files: refuses symbolic links,
        files with several hard links and, on Linux, files of other users. */
    bool openInSharedFolder(const juce::File& file);

    bool isOpen() const { return handle != closed; }

    /** Returns how many bytes were written: fewer than `count` if, for example, the disk is
        full. */
    size_t write(const char* bytes, size_t count);

    /** Removes the last `count` bytes. */
    void removeLast(size_t count);

    /** Waits until the disk has all bytes. */
    void sync();

    void close();

private:
    bool goToEnd();

    static constexpr intptr_t closed = -1;

    intptr_t handle = closed; ///< A descriptor on Linux, a HANDLE on Windows.
};

} // namespace quelta::platform
