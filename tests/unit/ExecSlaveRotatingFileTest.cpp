#include "exec_slave/RotatingFile.h"

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"

namespace quelta::execslave {
namespace {

using quelta::test::readBytes;
using quelta::test::writeBytes;

class ExecSlaveRotatingFileTest : public testing::Test
{
protected:
    std::string read(const char* name) const { return readBytes(folder.getChild(name)); }
    std::string getPath() const { return folder.getPath() + "/log"; }

    bool exists(const char* name) const { return folder.getChild(name).exists(); }

    const test::TemporaryFolder folder;
};

TEST_F(ExecSlaveRotatingFileTest, LinesAreAppendedToTheFile)
{
    writeBytes(folder.getChild("log"), "before\n");
    RotatingFile file(getPath(), 100, 2);
    EXPECT_EQ(file.write("one\n"), "");
    EXPECT_EQ(file.write("two\nthree\n"), "");
    EXPECT_EQ(read("log"), "before\none\ntwo\nthree\n");
}

TEST_F(ExecSlaveRotatingFileTest, AFullFileBecomesTheFirstOldOne)
{
    RotatingFile file(getPath(), 8, 2);

    for (const auto* const line : {"aaa\n", "bbb\n", "ccc\n"})
        EXPECT_EQ(file.write(line), "");

    EXPECT_EQ(read("log"), "ccc\n");
    EXPECT_EQ(read("log.1"), "aaa\nbbb\n");
    EXPECT_FALSE(exists("log.2"));
}

TEST_F(ExecSlaveRotatingFileTest, TheOldestFileIsDropped)
{
    RotatingFile file(getPath(), 4, 2);

    for (const auto* const line : {"aaa\n", "bbb\n", "ccc\n", "ddd\n"})
        EXPECT_EQ(file.write(line), "");

    EXPECT_EQ(read("log"), "ddd\n");
    EXPECT_EQ(read("log.1"), "ccc\n");
    EXPECT_EQ(read("log.2"), "bbb\n");
    EXPECT_FALSE(exists("log.3"));
}

TEST_F(ExecSlaveRotatingFileTest, WithoutOldFilesTheFileBeginsAnew)
{
    RotatingFile file(getPath(), 4, 0);
    file.write("aaa\n");
    EXPECT_EQ(file.write("bbb\n"), "");
    EXPECT_EQ(read("log"), "bbb\n");
    EXPECT_FALSE(exists("log.1"));
}

TEST_F(ExecSlaveRotatingFileTest, ManyLinesAtOnceAreDividedAmongFiles)
{
    RotatingFile file(getPath(), 8, 3);
    EXPECT_EQ(file.write("aaa\nbbb\nccc\nddd\neee\n"), "");
    EXPECT_EQ(read("log"), "eee\n");
    EXPECT_EQ(read("log.1"), "ccc\nddd\n");
    EXPECT_EQ(read("log.2"), "aaa\nbbb\n");
}

TEST_F(ExecSlaveRotatingFileTest, ALineThatIsTooLongGetsAFileOfItsOwn)
{
    RotatingFile file(getPath(), 8, 3);
    EXPECT_EQ(file.write("aaa\na line that is too long\nbbb\n"), "");
    EXPECT_EQ(read("log"), "bbb\n");
    EXPECT_EQ(read("log.1"), "a line that is too long\n");
    EXPECT_EQ(read("log.2"), "aaa\n");
}

TEST_F(ExecSlaveRotatingFileTest, AFileThatCannotBeRenamedGrowsAndIsReportedOnce)
{
    // A file cannot replace a folder that is not empty.
    ASSERT_TRUE(folder.getChild("log.1").getChildFile("inside").create().wasOk());
    writeBytes(folder.getChild("log.2").getChildFile("inside"), "");
    ASSERT_TRUE(folder.getChild("log.2").getChildFile("inside").create().wasOk());
    RotatingFile file(getPath(), 4, 2);

    EXPECT_EQ(file.write("aaa\n"), "");
    EXPECT_TRUE(file.write("bbb\n").starts_with("cannot rotate " + getPath() + ": "));
    EXPECT_EQ(file.write("ccc\n"), "");
    EXPECT_EQ(read("log"), "aaa\nbbb\nccc\n");

    // Once the file can be renamed, it is.
    ASSERT_TRUE(folder.getChild("log.1").deleteRecursively());
    ASSERT_TRUE(folder.getChild("log.2").deleteRecursively());
    EXPECT_EQ(file.write("dddddddddddd\n"), "");
    EXPECT_EQ(read("log"), "dddddddddddd\n");
    EXPECT_EQ(read("log.1"), "aaa\nbbb\nccc\n");
}

TEST_F(ExecSlaveRotatingFileTest, AFileThatCannotBeRenamedReplacesNoOlderOne)
{
    writeBytes(folder.getChild("log.1"), "older\n");
    ASSERT_TRUE(folder.getChild("log.2").getChildFile("inside").create().wasOk());
    RotatingFile file(getPath(), 4, 2);
    file.write("aaa\n");
    file.write("bbb\n");
    EXPECT_EQ(read("log"), "aaa\nbbb\n");
    EXPECT_EQ(read("log.1"), "older\n");
}

TEST_F(ExecSlaveRotatingFileTest, AFileThatCannotBeOpenedIsReportedOnceAndTriedAgain)
{
    const auto path = folder.getPath() + "/missing/log";
    RotatingFile file(path, 100, 2);
    EXPECT_TRUE(file.write("aaa\n").starts_with("cannot open " + path + ": "));
    EXPECT_EQ(file.write("bbb\n"), "");
    ASSERT_TRUE(folder.getChild("missing").createDirectory().wasOk());
    EXPECT_EQ(file.write("ccc\n"), "");
    EXPECT_EQ(readBytes(folder.getChild("missing").getChildFile("log")), "ccc\n");
}

} // namespace
} // namespace quelta::execslave
