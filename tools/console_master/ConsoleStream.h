// Standard output and standard error of the program. A real console of Windows takes UTF-16;
// everything else (a file, a pipe, a terminal of another system) takes the bytes as they are. One
// thread uses a stream.
#pragma once

#include <cstdio>
#include <ostream>
#include <streambuf>
#include <string>

#include "platform/Console.h"

namespace quelta {

/** Keeps what is written until it is flushed. The stream goes bad with the first flush that
    fails. */
class ConsoleStream final : public std::ostream
{
public:
    /** `file` is the stream as the standard library knows it. The first failure is reported on
        `complaints`. */
    ConsoleStream(platform::StandardStream stream, std::FILE* file,
                  std::ostream* complaints = nullptr);

private:
    class Buffer final : public std::streambuf
    {
    public:
        Buffer(platform::StandardStream stream, std::FILE* file, std::ostream* complaints);

    private:
        int_type overflow(int_type character) override;
        std::streamsize xsputn(const char* text, std::streamsize size) override;
        int sync() override;

        void writeToConsole(platform::Console& console);
        bool writeToFile();

        const platform::StandardStream stream;
        std::FILE* const file;
        std::ostream* complaints; ///< Null once the failure has been reported.
        std::string pending;
    };

    Buffer buffer;
};

} // namespace quelta
