#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <juce_core/juce_core.h>

#include "console_master/ConsoleStream.h"

namespace quelta {

namespace {

/** Replaces the system's console while it lives. */
class RecordingConsole final : public platform::Console
{
public:
    explicit RecordingConsole(platform::StandardStream realStream) : real(realStream)
    {
        platform::setConsole(this);
    }

    ~RecordingConsole() override { platform::setConsole(nullptr); }

    bool isRealConsole(platform::StandardStream stream) override { return stream == real; }

    void write(platform::StandardStream stream, std::u16string_view text) override
    {
        EXPECT_EQ(stream, real);
        written.emplace_back(text);
    }

    std::vector<std::u16string> written;

private:
    const platform::StandardStream real;
};

/** A file to which nothing can be written. */
class ReadOnlyFile
{
public:
    ReadOnlyFile()
    {
        EXPECT_TRUE(place.getFile().create().wasOk());
        file = std::fopen(place.getFile().getFullPathName().toRawUTF8(), "r");
        EXPECT_NE(file, nullptr);
    }

    ~ReadOnlyFile() { std::fclose(file); }

    juce::TemporaryFile place;
    std::FILE* file = nullptr;
};

} // namespace

TEST(ConsoleMasterStream, WritesUtf16WithoutNulsToAConsoleLineByLine)
{
    RecordingConsole console(platform::StandardStream::error);
    ConsoleStream stream(platform::StandardStream::error, stderr);
    stream << "Gr\xc3\xb6\xc3\x9f"
           << "e \xe6\x97\xa5\xf0\x9f\x98\x80\n\nrest";
    EXPECT_EQ(console.written, std::vector<std::u16string>{});

    stream << std::flush;
    ASSERT_EQ(console.written,
              (std::vector<std::u16string>{u"Gr\u00f6\u00dfe \u65e5\U0001f600\n", u"\n", u"rest"}));

    stream << '!' << std::endl;
    EXPECT_EQ(console.written.back(), u"!\n");
    EXPECT_TRUE(stream.good());
}

TEST(ConsoleMasterStream, WritesBytesUnchangedToAFile)
{
    RecordingConsole console(platform::StandardStream::error);
    const juce::TemporaryFile place;
    auto* const file = std::fopen(place.getFile().getFullPathName().toRawUTF8(), "wb");
    ASSERT_NE(file, nullptr);
    ConsoleStream stream(platform::StandardStream::output, file);
    stream << "Gr\xc3\xb6\xff" << 12 << std::endl;
    std::fclose(file);
    juce::MemoryBlock bytes;
    EXPECT_TRUE(place.getFile().loadFileAsData(bytes));
    EXPECT_EQ(std::string(static_cast<const char*>(bytes.getData()), bytes.getSize()),
              "Gr\xc3\xb6\xff"
              "12\n");
}

TEST(ConsoleMasterStream, ReportsTheFirstFailedWriteAndSetsTheStreamsBadbit)
{
    const ReadOnlyFile full;
    std::ostringstream complaints;
    ConsoleStream stream(platform::StandardStream::output, full.file, &complaints);
    stream << "lost" << std::flush;
    EXPECT_FALSE(stream.good());
    EXPECT_EQ(complaints.str(), "cannot write the output: Bad file descriptor\n");

    stream.clear();
    stream << "lost as well" << std::flush;
    EXPECT_FALSE(stream.good());
    EXPECT_EQ(complaints.str(), "cannot write the output: Bad file descriptor\n");
}

} // namespace quelta
