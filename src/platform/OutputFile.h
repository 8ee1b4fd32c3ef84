// A file that is written at its end, without a buffer. Not thread-safe.
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

    /** Opens the file, creating it if there is none. False if that fails. */
    bool open(const juce::File& file);

    /** The same in a folder where other users can create files: follows no link in the file's
        place, and refuses a file that has a second name or, on Linux, another owner. */
    bool openInSharedFolder(const juce::File& file);

    bool isOpen() const { return handle != closed; }

    /** Returns how many bytes were written: fewer than `count` if the disk is full, for
        instance. */
    size_t write(const char* bytes, size_t count);

    /** Removes the last `count` bytes again. */
    void removeLast(size_t count);

    /** Waits until the disk has what was written. */
    void sync();

    void close();

private:
    bool goToEnd();

    static constexpr intptr_t closed = -1;

    intptr_t handle = closed; ///< The system's descriptor or handle.
};

} // namespace quelta::platform
