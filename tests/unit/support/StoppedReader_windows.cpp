#include "StoppedReader.h"

#include <fcntl.h>
#include <io.h>

#include <array>
#include <cstdio>

namespace quelta::test {

StoppedReader::StoppedReader()
{
    std::array<int, 2> ends{-1, -1};
    std::fflush(stdout);
    [[maybe_unused]] const auto failed = _pipe(ends.data(), 4096, _O_BINARY | _O_NOINHERIT);
    original = _dup(_fileno(stdout));
    _dup2(ends[1], _fileno(stdout));
    _close(ends[1]);
    readEnd = ends[0];
}

StoppedReader::~StoppedReader()
{
    std::fflush(stdout);
    _dup2(original, _fileno(stdout));
    _close(original);
    _close(readEnd);
}

std::string StoppedReader::read(size_t count)
{
    std::string bytes(count, '\0');
    size_t done = 0;

    while (done < count)
    {
        const auto result =
            _read(readEnd, bytes.data() + done, static_cast<unsigned>(count - done));

        if (result <= 0)
            break;

        done += static_cast<size_t>(result);
    }

    bytes.resize(done);
    return bytes;
}

} // namespace quelta::test
