// The log file. The first line opens it in the executable's folder or, if that fails, in the
// temporary folder. If both fail, the log silently does without a file until the process ends.
//
// Lines that do not fit on a full disk are lost, but the file only ever holds whole lines. Called
// under the log lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

#include "platform/OutputFile.h"
#include "util/FileName.h"

namespace quelta {

class LogFile
{
public:
    /** Sets the path. Opens nothing yet. */
    void setFileName(FileName name);

    /** Appends the line and a line feed. Opens the file if necessary, and flushes it every
        `logForceFlush` lines. */
    void writeLine(const char* line);

    /** Writes the buffered lines and waits until the disk has them. No-op if no file is open. */
    void flush();

    /** Flushes and closes the file. No-op if no file is open. */
    void close();

private:
    void append(std::string_view line);
    void writeOut(std::string_view text, std::string_view lineEnd = {});
    bool open();
    bool openBesideExecutable();
    bool openInTemporaryFolder();

    static constexpr size_t bufferSize = 65'536; ///< Bytes.

    FileName fileName;

    /** `fileName`, converted in advance: converting an invalid name logs an error, which would call
        writeLine again. */
    juce::File file;

    platform::OutputFile output;
    std::string buffer;  ///< Whole lines only, fewer than `bufferSize` bytes.
    bool failed = false; ///< The file could be opened in neither folder. Never reset.
    int32_t linesUntilFlush = 0;
};

} // namespace quelta
