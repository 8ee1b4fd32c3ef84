#include "console_master/platform/ProgramArguments.h"

#include <windows.h>

#include <shellapi.h>

namespace quelta {

namespace {

std::string toUtf8(const wchar_t* text)
{
    // The size includes the terminating NUL. An unpaired surrogate becomes U+FFFD.
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back();
    return utf8;
}

} // namespace

std::vector<std::string> programArguments(int argc, const char* const* argv)
{
    int count = 0;
    auto* const wide = CommandLineToArgvW(GetCommandLineW(), &count);

    // Only if memory is exhausted.
    if (wide == nullptr)
        return {argv, argv + argc};

    std::vector<std::string> arguments;

    for (int i = 0; i < count; ++i)
        arguments.push_back(toUtf8(wide[i]));

    LocalFree(wide);
    return arguments;
}

} // namespace quelta
