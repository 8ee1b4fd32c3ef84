// Reads the program's output on a thread of its own: line by line to the writer, past the patterns
// of the errors and of readiness.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "exec_slave/Configuration.h"
#include "exec_slave/OutputWriter.h"
#include "exec_slave/Pattern.h"
#include "exec_slave/SessionInbox.h"
#include "exec_slave/platform/ContainedProgram.h"

namespace quelta::execslave {

class OutputPump
{
public:
    /** Reads until the output ends. Everything given must outlive this object. */
    OutputPump(const Configuration& configuration, ContainedProgram& program, OutputWriter& writer,
               SessionInbox& inbox);

    /** Ends the thread; what has not been read by then is lost. The writer must have
        ended, or it may block. */
    ~OutputPump() = default;

    OutputPump(const OutputPump&) = delete;
    OutputPump& operator=(const OutputPump&) = delete;

private:
    void run(const std::stop_token& stop);
    void takeLine(std::string_view line);

    ContainedProgram& source;
    OutputWriter& output;
    SessionInbox& reports;
    std::vector<std::pair<std::string, Pattern>> errors;
    std::optional<Pattern> ready; ///< Until a line has matched.
    std::jthread thread;
};

} // namespace quelta::execslave
