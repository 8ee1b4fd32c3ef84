// The log file: opened by the first line that reaches it, in the executable's folder or, failing
// that, in the temporary folder; given up for good, silently, when neither works. Lines that do not
// fit on a full disk are lost; what the file holds are whole lines.
//
// Every call is made under the log lock.
#pragma once

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
    /** Where the file will lie. Nothing is opened yet. */
    void setFileName(FileName name);

    /** Appends the line and a line feed, opening the file if need be; flushes as `logForceFlush`
        asks. */
    void writeLine(const char* line);

    /** Writes out what is buffered, if a file is open. */
    void flush();

    /** Flushes and closes the file, if one is open. */
    void close();

private:
    void append(std::string_view line);
    void writeOut(std::string_view text, std::string_view lineEnd = {});
    bool open();
    bool openBesideExecutable();
    bool openInTemporaryFolder();

    static constexpr size_t bufferSize = 65536; ///< Bytes.

    FileName fileName;
    juce::File
        file; ///< What `fileName` names; made beforehand, since a name that is none logs an error.
    platform::OutputFile output;
    std::string buffer;  ///< Whole lines only, fewer than `bufferSize` bytes.
    bool failed = false; ///< Both places have failed; never reset.
    int32_t linesUntilFlush = 0;
};

} // namespace quelta
