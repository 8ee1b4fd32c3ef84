#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "log/LogFlags.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

using namespace std::string_view_literals;
using Settings = LogFlagFileSettings;

constexpr size_t megabytes = 1024 * 1024;

// Far above what reading takes even under a sanitizer, far below what a quadratic algorithm takes.
constexpr std::chrono::seconds readLimit{60};

class LogFlagsFileTest : public testing::Test
{
protected:
    Settings read(std::string_view bytes)
    {
        writeBytes(file, bytes);
        const auto settings = readLogFlagsFile(file);
        EXPECT_EQ(log.lines(), Lines{});
        return settings;
    }

    /** Reads megabytes that end in a setting, which must be found within the limit. */
    void expectReadQuickly(const std::string& bytes)
    {
        flags::daemon = 0;
        const auto start = std::chrono::steady_clock::now();
        read(bytes);
        EXPECT_LT(std::chrono::steady_clock::now() - start, readLimit);
        EXPECT_EQ(flags::daemon, 7);
    }

    LogCapture log;
    const TemporaryFolder folder;
    const juce::File file = folder.getChild("flags.txt");
};

TEST_F(LogFlagsFileTest, AFileSetsFlags)
{
    EXPECT_EQ(read("daemon\nlogTime=3\n"), (Settings{{"daemon", 1}, {"logTime", 3}}));
    EXPECT_EQ(flags::daemon, 1);
    EXPECT_EQ(flags::logTime, 3);
}

TEST_F(LogFlagsFileTest, TheTableKeepsTheFirstSettingOfAFlag)
{
    EXPECT_EQ(read("daemon=9\ndaemon=2\n"), (Settings{{"daemon", 9}}));
    EXPECT_EQ(flags::daemon, 2);
}

TEST_F(LogFlagsFileTest, AMissingFileChangesNothing)
{
    flags::daemon = 4;
    EXPECT_EQ(readLogFlagsFile(folder.getChild("no such file.txt")), Settings{});
    EXPECT_EQ(readLogFlagsFile(juce::File()), Settings{});
    EXPECT_EQ(flags::daemon, 4);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(LogFlagsFileTest, AFolderOfThatNameIsIgnored)
{
    file.createDirectory();
    EXPECT_EQ(readLogFlagsFile(file), Settings{});
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(LogFlagsFileTest, AnEmptyFileSetsNothing)
{
    EXPECT_EQ(read(""), Settings{});
}

TEST_F(LogFlagsFileTest, AByteOrderMarkIsNotPartOfTheFirstName)
{
    EXPECT_EQ(read("\xEF\xBB\xBF"
                   "daemon=2"),
              (Settings{{"daemon", 2}}));
    EXPECT_EQ(read("\xEF\xBB\xBF"), Settings{});
}

TEST_F(LogFlagsFileTest, Utf16OfBothByteOrdersIsRead)
{
    EXPECT_EQ(read("\xFF\xFE"
                   "d\0a\0e\0m\0o\0n\0=\0002\0\r\0\n\0l\0o\0g\0T\0i\0m\0e\0"sv),
              (Settings{{"daemon", 2}, {"logTime", 1}}));
    EXPECT_EQ(read("\xFE\xFF"
                   "\0d\0a\0e\0m\0o\0n\0 \0003"sv),
              (Settings{{"daemon", 3}}));
    EXPECT_EQ(flags::daemon, 3);
}

TEST_F(LogFlagsFileTest, Utf16NamesAreStoredAsUtf8)
{
    EXPECT_EQ(read("\xFF\xFE\xFC\x00\xAC\x20=\0005\0"sv), (Settings{{"\xC3\xBC\xE2\x82\xAC", 5}}));
}

TEST_F(LogFlagsFileTest, HalfACharacterAtTheEndOfUtf16IsIgnored)
{
    EXPECT_EQ(read("\xFF\xFE"
                   "d\0a\0e\0m\0o\0n\0l"sv),
              (Settings{{"daemon", 1}}));
    EXPECT_EQ(read("\xFF\xFE"), Settings{});
    EXPECT_EQ(read("\xFF\xFE\n"), Settings{});
}

TEST_F(LogFlagsFileTest, TextBehindNulsIsRead)
{
    EXPECT_EQ(read("ab\0c daemon=6\0\0 logTime"sv), (Settings{{std::string("ab\0c", 4), 1},
                                                              {"daemon", 1},
                                                              {std::string("6\0\0", 3), 1},
                                                              {"logTime", 1}}));
    EXPECT_EQ(flags::logTime, 1);
    read(
        "\xFF\xFE"
        "\0\0 \0l\0o\0g\0P\0r\0e\0f\0i\0x\0"sv);
    EXPECT_EQ(flags::logPrefix, 1);
}

TEST_F(LogFlagsFileTest, InvalidUtf8IsIgnored)
{
    EXPECT_EQ(read("\xC3 \xFF\xFE\x80 daemon=2 \xED\xA0\x80"),
              (Settings{{"\xC3", 1}, {"\xFF\xFE\x80", 1}, {"daemon", 2}, {"\xED\xA0\x80", 1}}));
    EXPECT_EQ(flags::daemon, 2);
}

TEST_F(LogFlagsFileTest, ASettingBehindMegabytesOfJunkIsRead)
{
    std::mt19937 random(1);
    std::string junk(8 * megabytes, '\0');

    // No quotes: an open one would take the rest.
    for (auto& byte : junk)
        do
            byte = static_cast<char>(random());
        while (byte == '"');

    expectReadQuickly(junk + "\ndaemon=7\n");
}

TEST_F(LogFlagsFileTest, ASettingBehindMegabytesOfOneCharacterIsRead)
{
    for (const auto character : {'=', '"', ' ', '\n', '\0', '-', '1', 'x'})
        expectReadQuickly(std::string(8 * megabytes, character) + "\ndaemon=7\n");
}

TEST_F(LogFlagsFileTest, ASettingBehindMegabytesOfNamesIsRead)
{
    std::string names;

    for (int i = 0; names.size() < 8 * megabytes; ++i)
        names += "name" + std::to_string(i) + "\n";

    expectReadQuickly(names + "daemon=7\n");
}

TEST_F(LogFlagsFileTest, ASettingBehindMegabytesOfUtf16IsRead)
{
    std::string text = "\xFF\xFE";

    while (text.size() < 8 * megabytes)
        text += "\xAC\x20="sv;

    text.resize(8 * megabytes); // an even size; the last character may be cut
    expectReadQuickly(text + std::string("\n\0d\0a\0e\0m\0o\0n\0=\0007\0"sv));
}

} // namespace
} // namespace quelta::test
