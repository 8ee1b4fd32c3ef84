#include "exec_slave/LineSplitter.h"

#include <gtest/gtest.h>

#include <vector>

namespace quelta::execslave {
namespace {

using Lines = std::vector<std::string>;

/** The lines of a stream that arrives in these pieces. */
Lines split(const std::vector<std::string>& pieces)
{
    LineSplitter splitter;
    Lines lines;
    const auto sink = [&](std::string_view line) { lines.emplace_back(line); };

    for (const auto& piece : pieces)
        splitter.add(piece, sink);

    splitter.finish(sink);
    return lines;
}

TEST(ExecSlaveLineSplitterTest, LinesEndWithLfCrLfOrCr)
{
    EXPECT_EQ(split({"a\nb\r\nc\rd"}), Lines({"a", "b", "c", "d"}));
}

TEST(ExecSlaveLineSplitterTest, EmptyLinesAreKept)
{
    EXPECT_EQ(split({"\n\na\r\n\r\n\r\rb\n"}), Lines({"", "", "a", "", "", "", "b"}));
}

TEST(ExecSlaveLineSplitterTest, PiecesMakeNoDifference)
{
    const std::string text = "first\r\nsecond\rthird\n\nfifth";
    Lines bytes;

    for (const auto byte : text)
        bytes.emplace_back(1, byte);

    EXPECT_EQ(split(bytes), Lines({"first", "second", "third", "", "fifth"}));
    EXPECT_EQ(split({text}), split(bytes));
}

TEST(ExecSlaveLineSplitterTest, ACompleteLineIsPassedOnAtOnce)
{
    LineSplitter splitter;
    Lines lines;
    const auto sink = [&](std::string_view line) { lines.emplace_back(line); };

    splitter.add("ready\nnot yet", sink);
    EXPECT_EQ(lines, Lines({"ready"}));
}

TEST(ExecSlaveLineSplitterTest, AnEmptyStreamHasNoLine)
{
    EXPECT_EQ(split({}), Lines());
    EXPECT_EQ(split({""}), Lines());
}

TEST(ExecSlaveLineSplitterTest, ALineOfTheGreatestLengthIsOneLine)
{
    const std::string longest(maxLineLength, 'x');
    EXPECT_EQ(split({longest + "\nnext\n"}), Lines({longest, "next"}));
    EXPECT_EQ(split({longest, "\r\n", "next"}), Lines({longest, "next"}));
}

TEST(ExecSlaveLineSplitterTest, ALongerLineIsCut)
{
    const std::string longest(maxLineLength, 'x');
    EXPECT_EQ(split({longest + longest + "y\nnext"}), Lines({longest, longest, "y", "next"}));
}

TEST(ExecSlaveLineSplitterTest, ALineIsCutBetweenCharacters)
{
    for (const std::string character : {"\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"})
        for (size_t before = 1; before < character.size(); ++before)
        {
            const std::string start(maxLineLength - before, 'x');
            EXPECT_EQ(split({start + character + "y"}), Lines({start, character + "y"}));
        }

    // A character that ends at the cut stays whole.
    const auto whole = std::string(maxLineLength - 2, 'x') + "\xC3\xA4";
    EXPECT_EQ(split({whole + "y"}), Lines({whole, "y"}));
}

TEST(ExecSlaveLineSplitterTest, BytesThatAreNotUtf8AreCutToo)
{
    const std::string bytes(3 * maxLineLength, '\xFF');
    size_t total = 0;

    for (const auto& line : split({bytes}))
    {
        EXPECT_LE(line.size(), maxLineLength);
        EXPECT_GT(line.size(), 0U);
        total += line.size();
    }

    EXPECT_EQ(total, bytes.size());
}

} // namespace
} // namespace quelta::execslave
