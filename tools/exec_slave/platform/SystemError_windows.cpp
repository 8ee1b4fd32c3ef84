#include "exec_slave/platform/SystemError.h"

#include <windows.h>

#include <array>

#include "exec_slave/platform/WideText.h"

namespace quelta::execslave {

int getLastSystemError()
{
    return static_cast<int>(GetLastError());
}

std::string describeSystemError(int number)
{
    std::array<wchar_t, 512> text{};
    const auto length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                       nullptr, static_cast<DWORD>(number), 0, text.data(),
                                       static_cast<DWORD>(text.size()), nullptr);

    if (length == 0)
        return "error " + std::to_string(number);

    auto result = toUtf8({text.data(), length});

    // Some name the file, which the callers do.
    if (const auto at = result.find("%1"); at != std::string::npos)
        result.replace(at, 2, "the file");

    // The texts end with a full stop and a line break.
    while (!result.empty() &&
           (static_cast<unsigned char>(result.back()) <= ' ' || result.back() == '.'))
        result.pop_back();

    return result;
}

} // namespace quelta::execslave
