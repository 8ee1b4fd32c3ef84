#include "util/ValidUtf8.h"

#include <gtest/gtest.h>

using quelta::toValidUtf8;

TEST(ValidUtf8Test, KeepsValidText)
{
    EXPECT_EQ(toValidUtf8("node 7"), "node 7");
    EXPECT_EQ(toValidUtf8("n\xC3\xB6"
                          "de \xE2\x82\xAC \xF0\x9F\x8E\xA8"),
              "n\xC3\xB6"
              "de \xE2\x82\xAC \xF0\x9F\x8E\xA8");
    EXPECT_EQ(toValidUtf8(""), "");
}

TEST(ValidUtf8Test, ReadsOtherBytesAsLatin1)
{
    EXPECT_EQ(toValidUtf8("n\xF6"
                          "de"),
              "n\xC3\xB6"
              "de");
    EXPECT_EQ(toValidUtf8("\xFF\x80"), "\xC3\xBF\xC2\x80");
}

TEST(ValidUtf8Test, ReadsATruncatedCharacterAsLatin1)
{
    // JUCE reads past the end of such a text.
    EXPECT_EQ(toValidUtf8("0\xE2\x82"), "0\xC3\xA2\xC2\x82");
    EXPECT_EQ(toValidUtf8("\xC3"), "\xC3\x83");
}

TEST(ValidUtf8Test, ReadsAnOverlongCharacterAsLatin1)
{
    // JUCE allocates too little for such a text and writes past the end.
    EXPECT_EQ(toValidUtf8("\xE0\x8A\x98"), "\xC3\xA0\xC2\x8A\xC2\x98");
    EXPECT_EQ(toValidUtf8("\xC0\xAF"), "\xC3\x80\xC2\xAF");
    EXPECT_EQ(toValidUtf8("\xF0\x82\x82\xAC"), "\xC3\xB0\xC2\x82\xC2\x82\xC2\xAC");
}

TEST(ValidUtf8Test, EndsAtTheFirstNul)
{
    EXPECT_EQ(toValidUtf8(std::string_view("a\0\xFF", 3)), "a");
}
