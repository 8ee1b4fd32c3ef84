// The life of a baseline program: it prints "ready" and exits at the end of its standard input.
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
