// A file that rotates by size: FILE becomes FILE.1, FILE.1 becomes FILE.2 and so on. Not
// thread-safe.
//
// Losing lines is worse than a file that is too large: without permission to rename, or while
// another program keeps an old file open on Windows, the file just grows.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

#include "platform/OutputFile.h"

namespace quelta::execslave {

class RotatingFile
{
public:
    /** Opens nothing yet. `maxSize` is in bytes; `keep` is the number of old files. */
    RotatingFile(const std::string& path, int64_t maxSize, int keep);

    /** Appends whole lines. Rotates before the file would exceed its size; lines that exceed it by
        themselves get a file of their own. Returns what went wrong, once until it changes, else an
        empty string. */
    std::string write(std::string_view lines);

private:
    size_t countFittingBytes(std::string_view lines) const;
    bool open();
    void rotate();
    std::string moveFiles() const;
    void append(std::string_view lines);

    const std::string path;
    const juce::File file;
    const int64_t maxSize;
    const int keep;
    quelta::platform::OutputFile output;
    int64_t size = 0;
    int64_t sizeLimit; ///< Grows when the file cannot be renamed, so that not every line tries it.
    std::string problem;
};

} // namespace quelta::execslave
