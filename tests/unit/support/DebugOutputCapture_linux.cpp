#include "DebugOutputCapture.h"

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace quelta::test {

namespace {

std::string received;

} // namespace

DebugOutputCapture::DebugOutputCapture()
{
    received.clear();
}

DebugOutputCapture::~DebugOutputCapture() = default;

std::string DebugOutputCapture::getReceived()
{
    return received;
}

} // namespace quelta::test

/** Replaces the C library's function in this program. */
void syslog(int, const char* format, ...)
{
    std::array<char, 1'000> line{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    quelta::test::received += line.data();
    quelta::test::received += '\n';
}
