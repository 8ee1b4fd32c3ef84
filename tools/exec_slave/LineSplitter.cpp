#include "exec_slave/LineSplitter.h"

#include <algorithm>

namespace quelta::execslave {

namespace {

/** The number of bytes of the UTF-8 character that begins with this one; 1 if none does. */
size_t getCharacterLength(char lead)
{
    const auto byte = static_cast<unsigned char>(lead);
    return byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
}

/** Where to cut a long line: before a character at its end that is incomplete. */
size_t findCut(std::string_view line)
{
    constexpr size_t maxCharacterLength = 4;

    for (size_t length = 1; length < maxCharacterLength; ++length)
        if (getCharacterLength(line[line.size() - length]) > length)
            return line.size() - length;

    return line.size();
}

} // namespace

void LineSplitter::add(std::string_view bytes, const Sink& sink)
{
    while (!bytes.empty())
    {
        // The LF of a CR LF ends no line of its own.
        if (afterReturn && bytes.front() == '\n')
            bytes.remove_prefix(1);

        afterReturn = false;
        const auto room = maxLineLength - pending.size();
        const auto count = std::min(bytes.find_first_of("\r\n"), bytes.size());
        pending.append(bytes.substr(0, std::min(count, room)));

        if (count > room)
        {
            const auto cut = findCut(pending);
            sink(std::string_view(pending).substr(0, cut));
            pending.erase(0, cut);
            bytes.remove_prefix(room);
            continue;
        }

        if (count == bytes.size())
            return;

        sink(pending);
        pending.clear();
        afterReturn = bytes[count] == '\r';
        bytes.remove_prefix(count + 1);
    }
}

void LineSplitter::finish(const Sink& sink)
{
    if (!pending.empty())
        sink(pending);

    pending.clear();
}

} // namespace quelta::execslave
