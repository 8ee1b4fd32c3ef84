// How a bare program is run: it says when it is ready, and ends when its standard input does.
#pragma once

#include <unistd.h>

#include <cstdio>

namespace quelta::bench {

inline void sayReady()
{
    std::puts("ready");
    std::fflush(stdout);
}

inline void serveUntilInputEnds()
{
    sayReady();
    char ignored = 0;

    while (read(STDIN_FILENO, &ignored, 1) > 0)
    {}
}

} // namespace quelta::bench
