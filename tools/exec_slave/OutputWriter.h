// Writes lines to standard output and, if configured, to a file that rotates by size.
//
// A thread of its own does the writing, behind a bounded queue: a reader of standard output that
// has stopped blocks the program that writes too much, but never the session. Any thread may call.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "exec_slave/Configuration.h"

namespace quelta::execslave {

class OutputWriter
{
public:
    /** `settings` has its placeholders replaced. A file that cannot be opened, written or rotated
        is reported once, on standard output. */
    explicit OutputWriter(const OutputSettings& settings);

    /** Calls end(). */
    ~OutputWriter();

    OutputWriter(const OutputWriter&) = delete;
    OutputWriter& operator=(const OutputWriter&) = delete;

    /** A line of the program: prefixed, invalid UTF-8 and control characters replaced. Blocks while
        the queue is full, unless the writer is ending. */
    void writeProgramLine(std::string_view line);

    /** A message of the exec slave itself, prefixed with "exec slave: ". Never blocks: with the
        queue full of messages it is lost. */
    void writeMessage(std::string_view text);

    /** Writes what is queued, for at most a second, and ends the thread. Later lines are lost, and
        no call blocks any more. Idempotent; one thread. */
    void end();

private:
    struct Worker;
    std::unique_ptr<Worker> worker;
};

} // namespace quelta::execslave
