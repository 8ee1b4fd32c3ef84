#include "log/LogFile.h"

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
    if (failed || (!output.isOpen() && !open()))
        return;

    append(line);

    if (flags::logForceFlush == 0)
        return;

    if (linesUntilFlush > 1)
    {
        --linesUntilFlush;
        return;
    }

    flush();
    linesUntilFlush = flags::logForceFlush;
}

void LogFile::flush()
{
    if (!output.isOpen())
        return;

    writeOut(buffer);
    buffer.clear();
    output.sync();
}

void LogFile::close()
{
    flush();
    output.close();
}

/** Buffers the line and a line feed, the line end on every system. The buffer never reaches its
    capacity and therefore never reallocates. */
void LogFile::append(std::string_view line)
{
    if (buffer.size() + line.size() + 1 >= bufferSize)
    {
        writeOut(buffer);
        buffer.clear();
    }

    if (line.size() + 1 < bufferSize)
        buffer.append(line).push_back('\n');
    else
        writeOut(line, "\n");
}

/** Writes whole lines. The line end is separate so that a long line need not be copied. If the
    disk is full, removes the beginning of a line again, so that the next line does not continue
    it. */
void LogFile::writeOut(std::string_view text, std::string_view lineEnd)
{
    auto written = output.write(text.data(), text.size());

    if (written == text.size())
        written += output.write(lineEnd.data(), lineEnd.size());

    if (written == text.size() + lineEnd.size())
        return;

    const auto lastLineFeed = text.substr(0, written).rfind('\n');
    const auto wholeLines = lastLineFeed == std::string_view::npos ? 0 : lastLineFeed + 1;

    if (written > wholeLines)
        output.removeLast(written - wholeLines);
}

bool LogFile::open()
{
    failed = !openBesideExecutable() && !openInTemporaryFolder();
    buffer.clear();
    buffer.reserve(bufferSize);
    linesUntilFlush = flags::logForceFlush;
    return !failed;
}

bool LogFile::openBesideExecutable()
{
    if (flags::logAppendToFile == 0 && file.existsAsFile())
        file.deleteFile();

    return output.open(file);
}

bool LogFile::openInTemporaryFolder()
{
    const auto substitute =
        platform::temporaryFolder().getChildFile(fileName.getComponents().back().c_str());

    // Deletes links as well, even dangling ones: another user may have planted them.
    if (flags::logAppendToFile == 0 && !substitute.isDirectory())
        substitute.deleteFile();

    return output.openInSharedFolder(substitute);
}

} // namespace quelta
