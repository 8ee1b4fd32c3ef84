#include "log/LogFile.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

class LogFileTest : public testing::Test
{
protected:
    LogFileTest()
    {
        place(file);
        inTemporaryFolder = juce::File::getSpecialLocation(juce::File::tempDirectory)
                                .getChildFile(file.getFileName());
    }

    ~LogFileTest() override
    {
        logFile.close();
        inTemporaryFolder.deleteRecursively();
    }

    void place(const juce::File& where)
    {
        logFile.setFileName(FileName(where.getFullPathName().toRawUTF8()));
    }

    /** Makes opening the file impossible, even for root, by a folder of the same name. */
    static void block(const juce::File& where) { where.createDirectory(); }

    const TemporaryFolder folder;
    // As random as the folder's name, since the file may also end up in the temporary folder.
    const juce::File file =
        folder.getChild((juce::File(folder.getPath()).getFileName() + ".log").toRawUTF8());
    juce::File inTemporaryFolder;
    LogCapture log;
    LogFile logFile;
};

TEST_F(LogFileTest, TheFirstLineOpensTheFile)
{
    EXPECT_FALSE(file.exists());
    logFile.writeLine("x");
    EXPECT_TRUE(file.existsAsFile());
}

TEST_F(LogFileTest, LinesEndWithALineFeedOnEverySystem)
{
    logFile.writeLine("M\xC3\xBCller");
    logFile.writeLine("");
    logFile.writeLine("a\nb");
    logFile.close();
    EXPECT_EQ(readBytes(file), "M\xC3\xBCller\n\na\nb\n");
}

TEST_F(LogFileTest, ThePreviousFileIsReplacedByTheFirstLine)
{
    writeBytes(file, "previous run\n");
    place(file);
    EXPECT_EQ(readBytes(file), "previous run\n");
    logFile.writeLine("x");
    logFile.close();
    EXPECT_EQ(readBytes(file), "x\n");
}

TEST_F(LogFileTest, ThePreviousFileIsAppendedToWhenAsked)
{
    flags::logAppendToFile = 1;
    writeBytes(file, "previous run\n");
    logFile.writeLine("x");
    logFile.close();
    EXPECT_EQ(readBytes(file), "previous run\nx\n");
}

TEST_F(LogFileTest, WithoutForcedFlushesLinesStayInTheBufferUntilTheFileIsClosed)
{
    for (int i = 0; i < 100; ++i)
        logFile.writeLine("x");

    EXPECT_EQ(readBytes(file), "");
    logFile.close();
    EXPECT_EQ(readBytes(file).size(), 200u);
}

TEST_F(LogFileTest, TheBufferHolds64Kilobytes)
{
    logFile.writeLine(std::string(65'000, 'x').c_str());
    logFile.writeLine(std::string(533, 'y').c_str()); // leaves the one byte that a write needs
    EXPECT_EQ(readBytes(file), "");
    logFile.writeLine("z");
    EXPECT_EQ(readBytes(file).size(), 65'535u);
}

TEST_F(LogFileTest, FlushWritesWhatIsBuffered)
{
    logFile.flush(); // nothing is open yet
    logFile.writeLine("x");
    logFile.flush();
    EXPECT_EQ(readBytes(file), "x\n");
}

TEST_F(LogFileTest, AForcedFlushFollowsTheGivenNumberOfLines)
{
    flags::logForceFlush = 3;
    std::vector<size_t> sizes;

    for (int i = 0; i < 9; ++i)
    {
        logFile.writeLine("x");
        sizes.push_back(readBytes(file).size());
    }

    EXPECT_EQ(sizes, (std::vector<size_t>{0, 0, 6, 6, 6, 12, 12, 12, 18}));
}

TEST_F(LogFileTest, ACountOfOneOrLessFlushesEveryLine)
{
    for (const auto count : {1, -1, -5, std::numeric_limits<int32_t>::min()})
    {
        flags::logForceFlush = count;
        logFile.close();
        logFile.writeLine("x");
        EXPECT_EQ(readBytes(file), "x\n") << count;
        logFile.writeLine("y");
        EXPECT_EQ(readBytes(file), "x\ny\n") << count;
    }
}

TEST_F(LogFileTest, ClosingIsIdempotent)
{
    logFile.close();
    logFile.writeLine("x");
    logFile.close();
    logFile.close();
    EXPECT_EQ(readBytes(file), "x\n");
}

TEST_F(LogFileTest, AnUnopenableFileIsReplacedByOneInTheTemporaryFolder)
{
    block(file);
    logFile.writeLine("x");
    logFile.close();
    EXPECT_EQ(readBytes(inTemporaryFolder), "x\n");
    EXPECT_TRUE(file.isDirectory());
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(LogFileTest, AMissingFolderIsNotCreated)
{
    place(file.getSiblingFile("no such folder").getChildFile(file.getFileName()));
    logFile.writeLine("x");
    logFile.close();
    EXPECT_EQ(readBytes(inTemporaryFolder), "x\n");
    EXPECT_FALSE(file.getSiblingFile("no such folder").exists());
}

TEST_F(LogFileTest, ThePreviousFileInTheTemporaryFolderIsReplacedToo)
{
    block(file);
    writeBytes(inTemporaryFolder, "previous run\n");
    logFile.writeLine("x");
    logFile.close();
    EXPECT_EQ(readBytes(inTemporaryFolder), "x\n");
}

TEST_F(LogFileTest, ThePreviousFileInTheTemporaryFolderIsAppendedToWhenAsked)
{
    flags::logAppendToFile = 1;
    block(file);
    writeBytes(inTemporaryFolder, "previous run\n");
    logFile.writeLine("x");
    logFile.close();
    EXPECT_EQ(readBytes(inTemporaryFolder), "previous run\nx\n");
}

TEST_F(LogFileTest, ForcedFlushesApplyInTheTemporaryFolderToo)
{
    flags::logForceFlush = 2;
    block(file);
    logFile.writeLine("x");
    EXPECT_EQ(readBytes(inTemporaryFolder), "");
    logFile.writeLine("y");
    EXPECT_EQ(readBytes(inTemporaryFolder), "x\ny\n");
}

TEST_F(LogFileTest, LinesAreDroppedSilentlyIfNeitherFileCanBeOpened)
{
    block(file);
    block(inTemporaryFolder);
    logFile.writeLine("x");
    logFile.flush();

    file.deleteRecursively();
    inTemporaryFolder.deleteRecursively();
    logFile.writeLine("y");
    logFile.close();
    logFile.writeLine("z");
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(inTemporaryFolder.exists());
    EXPECT_EQ(log.lines(), Lines{});
}

} // namespace
} // namespace quelta::test
