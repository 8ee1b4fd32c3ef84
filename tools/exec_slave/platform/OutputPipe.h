// Windows: a pipe for a program's output that can be read with a time limit, unlike anonymous
// pipes. One thread reads.
#pragma once

#include <windows.h>

#include <array>
#include <chrono>
#include <cstddef>

namespace quelta::execslave {

class OutputPipe
{
public:
    OutputPipe();
    ~OutputPipe();

    OutputPipe(const OutputPipe&) = delete;
    OutputPipe& operator=(const OutputPipe&) = delete;

    bool isOpen() const { return writeEnd != INVALID_HANDLE_VALUE; }

    /** The inheritable end for the program. */
    HANDLE getWriteEnd() const { return writeEnd; }

    /** To be called once the program has its end, or the output never ends. */
    void closeWriteEnd();

    /** As ContainedProgram::read. */
    int read(char* buffer, size_t size, std::chrono::milliseconds limit);

private:
    bool beginRead();

    HANDLE readEnd = INVALID_HANDLE_VALUE;
    HANDLE writeEnd = INVALID_HANDLE_VALUE;
    OVERLAPPED operation{};
    bool isReading = false;
    std::array<char, 16384> bytes{}; ///< Belongs to the system while reading.
    size_t numBytes = 0;             ///< Read and not yet fetched.
    size_t numFetched = 0;
};

} // namespace quelta::execslave
