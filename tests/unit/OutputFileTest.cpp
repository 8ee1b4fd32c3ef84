#include "platform/OutputFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

class OutputFileTest : public testing::Test
{
protected:
    void write(std::string_view bytes)
    {
        EXPECT_EQ(output.write(bytes.data(), bytes.size()), bytes.size());
    }

    const TemporaryFolder folder;
    const juce::File file = folder.getChild("file.log");
    platform::OutputFile output;
};

TEST_F(OutputFileTest, BytesAreWrittenAtOnce)
{
    EXPECT_FALSE(output.isOpen());
    ASSERT_TRUE(output.open(file));
    EXPECT_TRUE(output.isOpen());
    write("ab\n");
    EXPECT_EQ(readBytes(file), "ab\n");
    write("\r\n");
    output.sync();
    output.close();
    EXPECT_FALSE(output.isOpen());
    EXPECT_EQ(readBytes(file), "ab\n\r\n");
}

TEST_F(OutputFileTest, AnExistingFileIsAppendedTo)
{
    writeBytes(file, "before\n");
    ASSERT_TRUE(output.open(file));
    write("x");
    ASSERT_TRUE(output.openInSharedFolder(file));
    write("y");
    EXPECT_EQ(readBytes(file), "before\nxy");
}

TEST_F(OutputFileTest, TheLastBytesCanBeRemoved)
{
    writeBytes(file, "before\n");
    ASSERT_TRUE(output.open(file));
    write("whole\nhalf");
    output.removeLast(4);
    EXPECT_EQ(readBytes(file), "before\nwhole\n");
    write("next\n");
    EXPECT_EQ(readBytes(file), "before\nwhole\nnext\n");
}

TEST_F(OutputFileTest, OnlyFilesCanBeOpened)
{
    file.createDirectory();

    for (const auto& place :
         {file, folder.getChild("no such folder").getChildFile("x"), juce::File()})
    {
        EXPECT_FALSE(output.open(place));
        EXPECT_FALSE(output.isOpen());
        EXPECT_FALSE(output.openInSharedFolder(place));
        EXPECT_FALSE(output.isOpen());
    }
}

TEST_F(OutputFileTest, ANewFileIsCreatedInASharedFolder)
{
    ASSERT_TRUE(output.openInSharedFolder(file));
    write("x");
    EXPECT_EQ(readBytes(file), "x");
}

TEST_F(OutputFileTest, AHardLinkIsRefusedOnlyInASharedFolder)
{
    writeBytes(folder.getChild("other"), "precious");
    const std::filesystem::path path(folder.getPath());
    std::filesystem::create_hard_link(path / "other", path / "second");
    EXPECT_FALSE(output.openInSharedFolder(folder.getChild("second")));
    EXPECT_FALSE(output.isOpen());
    EXPECT_TRUE(output.open(folder.getChild("second")));
}

} // namespace
} // namespace quelta::test
