// Replaces standard output by a pipe that is read only on request.
#pragma once

#include <string>

namespace quelta::test {

class StoppedReader
{
public:
    StoppedReader();

    /** Restores standard output. Everything that writes must have ended or been cancelled. */
    ~StoppedReader();

    StoppedReader(const StoppedReader&) = delete;
    StoppedReader& operator=(const StoppedReader&) = delete;

    /** Reads so many bytes. */
    std::string read(size_t count);

private:
    int original = -1;
    int readEnd = -1;
};

} // namespace quelta::test
