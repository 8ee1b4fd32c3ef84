#include "StoppedReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace quelta::test {

StoppedReader::StoppedReader()
{
    std::array<int, 2> ends{-1, -1};
    std::fflush(stdout);
    [[maybe_unused]] const auto failed = pipe2(ends.data(), O_CLOEXEC);
    original = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    readEnd = ends[0];
}

StoppedReader::~StoppedReader()
{
    std::fflush(stdout);
    dup2(original, STDOUT_FILENO);
    close(original);
    close(readEnd);
}

std::string StoppedReader::read(size_t count)
{
    std::string bytes(count, '\0');
    size_t done = 0;

    while (done < count)
    {
        const auto result = ::read(readEnd, bytes.data() + done, count - done);

        if (result <= 0)
            break;

        done += static_cast<size_t>(result);
    }

    bytes.resize(done);
    return bytes;
}

} // namespace quelta::test
