#include "exec_slave/CommandRun.h"

#include <thread>

#include "support/ContainedWorker.h"
#include "support/HangGuard.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

using execslave::CommandResult;
using execslave::runCommand;
using Outcome = CommandResult::Outcome;
using std::chrono::milliseconds;

constexpr size_t maxOutput = 65'536; // bytes

class ExecSlaveCommandRunTest : public testing::Test
{
private:
    HangGuard hangGuard;
};

TEST_F(ExecSlaveCommandRunTest, StatusAndOutputOfACommandAreReturned)
{
    const auto result = runCommand(makeWorkerStart({"bytes", "313233", "exit", "4"}), endLimit, {});
    EXPECT_EQ(result.outcome, Outcome::ended);
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "123");
    EXPECT_EQ(result.error, "");
}

TEST_F(ExecSlaveCommandRunTest, OnlyTheBeginningOfALongOutputIsReturned)
{
    const auto result = runCommand(makeWorkerStart({"flood", "1000000"}), endLimit, {});
    EXPECT_EQ(result.outcome, Outcome::ended);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, std::string(maxOutput, 'x'));
}

TEST_F(ExecSlaveCommandRunTest, ACommandThatTakesTooLongIsKilled)
{
    const auto result = runCommand(makeWorkerStart({"ignore-stop", "hang"}), milliseconds(300), {});
    EXPECT_EQ(result.outcome, Outcome::timedOut);
}

TEST_F(ExecSlaveCommandRunTest, ACommandThatFloodsForTooLongIsKilled)
{
    const auto result =
        runCommand(makeWorkerStart({"flood", "1000000000000"}), milliseconds(300), {});
    EXPECT_EQ(result.outcome, Outcome::timedOut);
    EXPECT_LE(result.output.size(), maxOutput);
}

TEST_F(ExecSlaveCommandRunTest, ARequestToStopKillsTheCommand)
{
    const TemporaryFolder folder;
    const auto begun = folder.getChild("begun");
    std::stop_source stop;

    std::thread stopper([&] {
        while (!begun.exists())
            std::this_thread::sleep_for(milliseconds(1));

        stop.request_stop();
    });

    const auto result = runCommand(
        makeWorkerStart({"ignore-stop", "create", begun.getFullPathName().toStdString(), "hang"}),
        endLimit, stop.get_token());
    stopper.join();
    EXPECT_EQ(result.outcome, Outcome::stopped);
}

TEST_F(ExecSlaveCommandRunTest, ACommandThatCannotBeStartedFails)
{
    const auto result = runCommand({{"no_such_program"}, {}, {}}, endLimit, {});
    EXPECT_EQ(result.outcome, Outcome::failed);
    EXPECT_TRUE(result.error.starts_with("cannot run no_such_program: ")) << result.error;
}

} // namespace
} // namespace quelta::test
