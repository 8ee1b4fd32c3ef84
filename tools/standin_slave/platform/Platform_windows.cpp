#include "standin_slave/platform/Platform.h"

#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <io.h>

#include "standin_slave/StandinSlave.h"

// A star in an argument is to stay one.
int _dowildcard = 0;

namespace quelta {

namespace {

std::string toUtf8(const wchar_t* text)
{
    const auto size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);

    if (size <= 0)
        return {};

    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back(); // the zero
    return utf8;
}

} // namespace

unsigned long getProcessId()
{
    return GetCurrentProcessId();
}

void crashProcess()
{
    // The status of an access violation; a real one could put up a dialogue box and wait.
    TerminateProcess(GetCurrentProcess(), 0xC0000005);
    std::_Exit(1);
}

} // namespace quelta

// The runtime splits the UTF-16 command line, as it would for any slave.
extern "C" int wmain(int argc, wchar_t* argv[])
{
    _setmode(_fileno(stdout), _O_BINARY);
    std::vector<std::string> arguments;

    for (int i = 0; i < argc; ++i)
        arguments.push_back(quelta::toUtf8(argv[i]));

    return static_cast<int>(quelta::runStandinSlave(arguments));
}
