#include "exec_slave/OutputWriter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/HangGuard.h"
#include "support/StandardStreamCapture.h"
#include "support/StoppedReader.h"
#include "support/TemporaryFolder.h"

namespace quelta::execslave {
namespace {

class ExecSlaveOutputWriterTest : public testing::Test
{
protected:
    ExecSlaveOutputWriterTest() { settings.prefix = "worker: "; }

    void useFile() { settings.file = folder.getPath() + "/log"; }

    std::string readFile() const { return test::readBytes(folder.getChild("log")); }

    const test::TemporaryFolder folder;
    OutputSettings settings;

private:
    test::HangGuard hangGuard;
};

TEST_F(ExecSlaveOutputWriterTest, LinesAndMessagesGoToStandardOutputAndTheFile)
{
    useFile();
    const test::StandardStreamCapture capture(stdout);

    {
        OutputWriter writer(settings);
        writer.writeMessage("started");
        writer.writeProgramLine("frame 1");
        writer.writeProgramLine("");
        writer.writeProgramLine("\x1B[0m\xE4");
    }

    const std::string expected =
        "exec slave: started\nworker: frame 1\nworker: \n"
        "worker: ?[0m\xC3\xA4\n";
    EXPECT_EQ(capture.getWritten(), expected);
    EXPECT_EQ(readFile(), expected);
}

TEST_F(ExecSlaveOutputWriterTest, AFileThatCannotBeOpenedIsReportedOnce)
{
    settings.file = folder.getPath() + "/missing/log";
    const test::StandardStreamCapture capture(stdout);

    {
        OutputWriter writer(settings);

        for (int i = 0; i < 3; ++i)
            writer.writeProgramLine("line");
    }

    const auto written = capture.getWritten();
    const auto report = "exec slave: cannot open " + settings.file + ": ";
    const auto at = written.find(report);
    ASSERT_NE(at, std::string::npos) << written;
    EXPECT_EQ(written.find(report, at + 1), std::string::npos) << written;
    EXPECT_NE(written.find("worker: line\nworker: line\n"), std::string::npos) << written;
}

TEST_F(ExecSlaveOutputWriterTest, AReaderThatHasStoppedBlocksNeitherMessagesNorTheEnd)
{
    useFile();
    const test::StoppedReader reader;
    const std::string message(8000, 'm');
    OutputWriter writer(settings);

    // More than any pipe and queue hold.
    for (int i = 0; i < 1000; ++i)
        writer.writeMessage(message);

    writer.end();
    writer.writeMessage("late");
    EXPECT_TRUE(readFile().starts_with("exec slave: mmmmm"));
}

TEST_F(ExecSlaveOutputWriterTest, AReaderThatHasStoppedBlocksTheProgramUntilTheEnd)
{
    test::StoppedReader reader;
    OutputWriter writer(settings);
    const std::string line(8000, 'x');
    std::atomic<int> numWritten{0};

    std::thread program([&] {
        for (int i = 0; i < 1000; ++i, ++numWritten)
            writer.writeProgramLine(line);
    });

    // Waits until the program is stuck: until the number stays the same for a while.
    for (int before = -1; before != numWritten || before == 0;)
    {
        before = numWritten;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }

    EXPECT_LT(numWritten, 500);
    writer.end();
    program.join();
    EXPECT_EQ(numWritten, 1000);
}

TEST_F(ExecSlaveOutputWriterTest, ASlowReaderGetsEverything)
{
    constexpr size_t numLines = 2000;
    test::StoppedReader reader;
    const std::string line(1000, 'x');
    const auto expected = "worker: " + line + "\n";
    std::string read;

    {
        OutputWriter writer(settings);

        std::thread program([&] {
            for (size_t i = 0; i < numLines; ++i)
                writer.writeProgramLine(line);
        });

        read = reader.read(numLines * expected.size());
        program.join();
    }

    std::string all;

    for (size_t i = 0; i < numLines; ++i)
        all += expected;

    EXPECT_TRUE(read == all);
}

} // namespace
} // namespace quelta::execslave
