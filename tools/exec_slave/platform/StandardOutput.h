// Standard output for a thread that must not hang when the reader of a pipe or a terminal stops
// reading.
//
// One thread writes. Any other may cancel.
#pragma once

#include <memory>
#include <string_view>

namespace quelta::execslave {

class StandardOutput
{
public:
    StandardOutput();
    ~StandardOutput();

    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    /** Writes UTF-8. Waits for the reader unless cancelled; text for a reader that is gone is
        dropped. */
    void write(std::string_view text);

    /** Makes write() return without a reader. To be repeated until the writing thread has ended,
        because a write that just begins may miss it. */
    void cancel();

private:
    struct Stream;
    std::unique_ptr<Stream> stream;
};

} // namespace quelta::execslave
