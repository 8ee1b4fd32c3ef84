#include "exec_slave/LineSplitter.h"

namespace quelta::execslave {

void LineSplitter::add(std::string_view bytes, const Sink& sink)
{
    for (const char byte : bytes)
    {
        const bool endsLine = byte == '\n' || byte == '\r';

        // The LF of a CR LF ends no line of its own.
        if (byte == '\n' && afterReturn)
        {
            afterReturn = false;
            continue;
        }

        afterReturn = byte == '\r';

        if (!endsLine)
            pending.push_back(byte);

        if (endsLine || pending.size() == maxLineLength)
        {
            sink(pending);
            pending.clear();
        }
    }
}

void LineSplitter::finish(const Sink& sink)
{
    if (!pending.empty())
        sink(pending);

    pending.clear();
}

} // namespace quelta::execslave
