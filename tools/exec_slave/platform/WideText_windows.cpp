#include "exec_slave/platform/WideText.h"

#include <windows.h>

namespace quelta::execslave {

namespace {

/** Backslashes are doubled before a quote and at the end, where the closing quote follows. */
std::wstring quote(const std::wstring& argument)
{
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos)
        return argument;

    std::wstring quoted = L"\"";
    size_t numBackslashes = 0;

    for (const auto character : argument)
    {
        if (character == L'"')
            quoted.append(numBackslashes + 1, L'\\');

        numBackslashes = character == L'\\' ? numBackslashes + 1 : 0;
        quoted += character;
    }

    return quoted.append(numBackslashes, L'\\') + L'"';
}

} // namespace

std::wstring toWide(const std::string& utf8)
{
    const auto size = static_cast<int>(utf8.size());
    const auto count = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
    std::wstring wide(static_cast<size_t>(count), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), count);
    return wide;
}

std::string toUtf8(const std::wstring& wide)
{
    const auto size = static_cast<int>(wide.size());
    const auto count =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(count), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, utf8.data(), count, nullptr, nullptr);
    return utf8;
}

std::wstring joinCommandLine(const std::vector<std::string>& arguments)
{
    std::wstring line;

    for (const auto& argument : arguments)
        line += (line.empty() ? L"" : L" ") + quote(toWide(argument));

    return line;
}

} // namespace quelta::execslave
