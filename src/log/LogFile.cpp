#include "log/LogFile.h"

#include <cstring>

#include "log/LogFlags.h"
#include "platform/Paths.h"

namespace quelta {

void LogFile::setFileName(FileName name)
{
    fileName = std::move(name);
    file = fileName.toJuceFile();
}

void LogFile::writeLine(const char* line)
{
    if (failed || (stream == nullptr && !open()))
        return;

    // Line feeds only, on every system.
    stream->write(line, std::strlen(line));
    stream->writeByte('\n');

    if (flags::logForceFlush == 0)
        return;

    if (linesUntilFlush > 1)
    {
        --linesUntilFlush;
        return;
    }

    stream->flush();
    linesUntilFlush = flags::logForceFlush;
}

void LogFile::flush()
{
    if (stream != nullptr)
        stream->flush();
}

void LogFile::close()
{
    flush();
    stream.reset();
}

bool LogFile::open()
{
    stream = openStream(file);

    if (stream == nullptr)
        stream =
            openStream(platform::temporaryFolder().getChildFile(fileName.getComponents().back().c_str()));

    failed = stream == nullptr;
    linesUntilFlush = flags::logForceFlush;
    return !failed;
}

std::unique_ptr<juce::FileOutputStream> LogFile::openStream(const juce::File& file)
{
    if (flags::logAppendToFile == 0 && file.existsAsFile())
        file.deleteFile();

    auto opened = std::make_unique<juce::FileOutputStream>(file, bufferSize);
    return opened->openedOk() ? std::move(opened) : nullptr;
}

} // namespace quelta
