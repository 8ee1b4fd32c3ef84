// Standard output and standard error of the program. On a Windows console the text is written as
// UTF-16; everywhere else (a file, a pipe, a Linux terminal) the bytes are written unchanged. Not
// thread-safe.
#pragma once

#include <cstdio>
#include <ostream>
#include <streambuf>
#include <string>

#include "platform/Console.h"

namespace quelta {

/** Buffers all output until it is flushed. A failed flush sets the stream's badbit. */
class ConsoleStream final : public std::ostream
{
public:
    /** `givenFile` is the C stream of the same name. The first failure is reported on
        `givenComplaints`, if given. */
    ConsoleStream(platform::StandardStream givenStream, std::FILE* givenFile,
                  std::ostream* givenComplaints = nullptr);

private:
    class Buffer final : public std::streambuf
    {
    public:
        Buffer(platform::StandardStream givenStream, std::FILE* givenFile,
               std::ostream* givenComplaints);

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
