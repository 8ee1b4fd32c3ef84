#include "console_master/ConsoleStream.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace quelta {

ConsoleStream::ConsoleStream(platform::StandardStream givenStream, std::FILE* givenFile,
                             std::ostream* givenComplaints)
    : std::ostream(nullptr), buffer(givenStream, givenFile, givenComplaints)
{
    rdbuf(&buffer);
}

ConsoleStream::Buffer::Buffer(platform::StandardStream givenStream, std::FILE* givenFile,
                              std::ostream* givenComplaints)
    : stream(givenStream), file(givenFile), complaints(givenComplaints)
{}

std::streambuf::int_type ConsoleStream::Buffer::overflow(int_type character)
{
    if (!traits_type::eq_int_type(character, traits_type::eof()))
        pending += traits_type::to_char_type(character);

    return traits_type::not_eof(character);
}

std::streamsize ConsoleStream::Buffer::xsputn(const char* text, std::streamsize size)
{
    pending.append(text, static_cast<size_t>(size));
    return size;
}

int ConsoleStream::Buffer::sync()
{
    auto& console = platform::getConsole();

    if (console.isRealConsole(stream))
        writeToConsole(console);
    else if (!writeToFile())
        return -1;

    return 0;
}

void ConsoleStream::Buffer::writeToConsole(platform::Console& console)
{
    const auto text = std::exchange(pending, {});

    // Line by line, because a console accepts a limited amount at once.
    for (size_t start = 0; start < text.size();)
    {
        const auto end = std::min(text.find('\n', start), text.size() - 1) + 1;
        auto line = platform::toTerminatedUtf16(text.substr(start, end - start).c_str());
        line.pop_back();
        console.write(stream, line);
        start = end;
    }
}

bool ConsoleStream::Buffer::writeToFile()
{
    const auto text = std::exchange(pending, {});
    errno = 0;

    if (std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0)
        return true;

    const auto reason = std::generic_category().message(errno);

    if (complaints != nullptr)
        *std::exchange(complaints, nullptr) << "cannot write the output: " << reason << std::endl;

    return false;
}

} // namespace quelta
