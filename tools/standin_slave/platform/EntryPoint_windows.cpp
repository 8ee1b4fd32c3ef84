// The entry point on Windows: wmain, because main gets its arguments in the ANSI code page. The C
// runtime splits the command line, as it does for any render slave.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <io.h>

#include "standin_slave/StandinSlave.h"

// Keeps the C runtime from expanding * and ? in arguments.
int _dowildcard = 0;

namespace {

std::string toUtf8(const wchar_t* text)
{
    const auto size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);

    if (size <= 0)
        return {};

    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back(); // the terminating NUL
    return utf8;
}

} // namespace

extern "C" int wmain(int argc, wchar_t* argv[])
{
    _setmode(_fileno(stdout), _O_BINARY);
    std::vector<std::string> arguments;

    for (int i = 0; i < argc; ++i)
        arguments.push_back(toUtf8(argv[i]));

    return static_cast<int>(quelta::runStandinSlave(arguments));
}
