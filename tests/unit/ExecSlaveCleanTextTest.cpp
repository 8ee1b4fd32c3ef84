#include "exec_slave/CleanText.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using namespace std::string_literals;

TEST(ExecSlaveCleanTextTest, Utf8AndTabsStay)
{
    EXPECT_EQ(cleanText("Szene\t\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80 ~"),
              "Szene\t\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80 ~");
}

TEST(ExecSlaveCleanTextTest, ControlCharactersBecomeQuestionMarks)
{
    EXPECT_EQ(cleanText("a\0b\x1B[31mc\x7F\x01\n"s), "a?b?[31mc???");
}

TEST(ExecSlaveCleanTextTest, ControlCharactersOfTwoBytesBecomeQuestionMarks)
{
    EXPECT_EQ(cleanText("a\xC2\x80"
                        "b\xC2\x9B"
                        "c\xC2\xA0"),
              "a?b?c\xC2\xA0");
}

TEST(ExecSlaveCleanTextTest, OtherBytesAreTakenForLatin1)
{
    EXPECT_EQ(cleanText("\xE4nd\xFC"), "\xC3\xA4nd\xC3\xBC");
    EXPECT_EQ(cleanText("\x9B"
                        "31m"),
              "?31m");
}

TEST(ExecSlaveCleanTextTest, OverlongFormsAreNotUtf8)
{
    EXPECT_EQ(cleanText("\xC0\xAF"), "\xC3\x80\xC2\xAF");
}

TEST(ExecSlaveCleanTextTest, NothingStaysNothing)
{
    EXPECT_EQ(cleanText(""), "");
}

} // namespace
} // namespace quelta::execslave
