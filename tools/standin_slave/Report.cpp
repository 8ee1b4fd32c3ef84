#include "standin_slave/Report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace quelta {

void report(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const auto length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);

    std::string line(static_cast<size_t>(std::max(length, 0)) + 1, '\0');
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    line.back() = '\n';

    // A single write, so that no line of the daemon ends up inside this one.
    line.insert(0, "standin: ");
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

std::string escapeForReport(const std::string& text)
{
    constexpr auto hexDigits = "0123456789ABCDEF";
    std::string escaped;

    for (size_t i = 0; i < text.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto looksEscaped = byte == '\\' && text.compare(i + 1, 1, "x") == 0;

        if (byte >= 0x20 && byte != 0x7F && !looksEscaped)
        {
            escaped += text[i];
            continue;
        }

        escaped += "\\x";
        escaped += hexDigits[byte / 16];
        escaped += hexDigits[byte % 16];
    }

    return escaped;
}

} // namespace quelta
