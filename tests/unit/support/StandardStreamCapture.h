// Redirects a standard stream of this process to a file, to show which bytes have been written and
// are not merely buffered.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "TemporaryFolder.h"

namespace quelta::test {

class StandardStreamCapture
{
public:
    explicit StandardStreamCapture(std::FILE* streamToCapture) : stream(streamToCapture)
    {
        std::fflush(stream);
        original = dup(fileno(stream));
        const int redirected =
            open(file.getFullPathName().toRawUTF8(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(redirected, fileno(stream));
        close(redirected);
    }

    ~StandardStreamCapture() { stop(); }

    StandardStreamCapture(const StandardStreamCapture&) = delete;
    StandardStreamCapture& operator=(const StandardStreamCapture&) = delete;

    /** Restores the stream. */
    void stop()
    {
        if (original < 0)
            return;

        std::fflush(stream);
        dup2(original, fileno(stream));
        close(original);
        original = -1;
    }

    /** The bytes written so far, without carriage returns. */
    std::string getWritten() const
    {
        auto bytes = readBytes(file);
        std::erase(bytes, '\r');
        return bytes;
    }

private:
    const TemporaryFolder folder;
    const juce::File file = folder.getChild("stream.txt");
    std::FILE* const stream;
    int original = -1;
};

} // namespace quelta::test
