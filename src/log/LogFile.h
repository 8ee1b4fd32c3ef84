// The log file: opened by the first line that reaches it, in the executable's folder or, failing that, in the
// temporary folder; given up for good, silently, when neither works.
//
// Every call is made under the log lock.
#pragma once

#include <cstdint>
#include <memory>

#include <juce_core/juce_core.h>

#include "util/FileName.h"

namespace quelta {

class LogFile
{
public:
    /** Where the file will lie. Nothing is opened yet. */
    void setFileName(FileName name);

    /** Appends the line and a line feed, opening the file if need be; flushes as `logForceFlush` asks. */
    void writeLine(const char* line);

    /** Writes out what is buffered, if a file is open. */
    void flush();

    /** Flushes and closes the file, if one is open. */
    void close();

private:
    bool open();
    static std::unique_ptr<juce::FileOutputStream> openStream(const juce::File& file);

    static constexpr size_t bufferSize = 65536; ///< Bytes.

    FileName fileName;
    juce::File file; ///< What `fileName` names; made beforehand, since a name that is none logs an error.
    std::unique_ptr<juce::FileOutputStream> stream;
    bool failed = false; ///< Both places have failed; never reset.
    int32_t linesUntilFlush = 0;
};

} // namespace quelta
