#include "exec_slave/Check.h"

#include <gtest/gtest.h>

#include <juce_core/juce_core.h>

#include <future>
#include <thread>

#include "exec_slave/CheckLoop.h"

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;
using Outcome = CommandResult::Outcome;

const ProgramStart check{{"check", "--fast"}, "", {}};

CommandResult makeResult(Outcome outcome, int status = 0, const std::string& output = {})
{
    CommandResult result;
    result.outcome = outcome;
    result.status = status;
    result.output = output;
    result.error = "cannot run check: No such file or directory";
    return result;
}

TEST(ExecSlaveCheckTest, ACommandSucceedsWithExitStatus0)
{
    EXPECT_EQ(describeFailure(check, makeResult(Outcome::ended, 0, "fine\n"), 5s), "");
}

TEST(ExecSlaveCheckTest, AFailedCommandIsToldWithItsLastLine)
{
    EXPECT_EQ(describeFailure(check, makeResult(Outcome::ended, 3, "one\r\ntwo\r\n\r\n"), 5s),
              "the command check ended with exit status 3: two");
    EXPECT_EQ(describeFailure(check, makeResult(Outcome::ended, 3, "only"), 5s),
              "the command check ended with exit status 3: only");
    EXPECT_EQ(describeFailure(check, makeResult(Outcome::ended, 3, "\n"), 5s),
              "the command check ended with exit status 3");
}

TEST(ExecSlaveCheckTest, EveryOtherOutcomeIsAFailureToo)
{
    EXPECT_EQ(describeFailure(check, makeResult(Outcome::timedOut), 5s),
              "the command check took longer than 5 s");
    EXPECT_EQ(describeFailure(check, makeResult(Outcome::stopped), 5s),
              "the command check was stopped");
    EXPECT_EQ(describeFailure(check, makeResult(Outcome::failed), 5s),
              "cannot run check: No such file or directory");
}

TEST(ExecSlaveCheckTest, APortThatListensAccepts)
{
    juce::StreamingSocket listener;
    ASSERT_TRUE(listener.createListener(0, "127.0.0.1"));
    const auto target = "127.0.0.1:" + std::to_string(listener.getBoundPort());
    EXPECT_EQ(checkPort(target, 30s, {}), "");
}

TEST(ExecSlaveCheckTest, APortThatDoesNotListenIsToldInTheWordsOfTheSystem)
{
    const std::string target = "127.0.0.1:1"; // of a service that is long out of use
    const auto failure = checkPort(target, 30s, {});
    const auto begin = "cannot connect to " + target + ": ";
    EXPECT_EQ(failure.substr(0, begin.size()), begin);
    EXPECT_GT(failure.size(), begin.size());
}

TEST(ExecSlaveCheckTest, AnUnknownHostIsAFailure)
{
    const auto failure = checkPort("256.0.0.1.invalid:80", 30s, {});
    const std::string begin = "cannot connect to 256.0.0.1.invalid:80: ";
    EXPECT_EQ(failure.substr(0, begin.size()), begin);
    EXPECT_GT(failure.size(), begin.size());
}

TEST(ExecSlaveCheckLoopTest, AResultIsReportedAgainAndAgain)
{
    std::promise<void> third;
    int count = 0;
    const CheckLoop loop(
        {0ms, 1ms, 7s},
        [&](std::chrono::milliseconds limit, const std::stop_token&) {
            return limit == 7s ? "failure " + std::to_string(++count) : "";
        },
        [&](const std::string& failure) {
            if (failure == "failure 3")
                third.set_value();
        });
    third.get_future().wait();
}

TEST(ExecSlaveCheckLoopTest, TheEndInterruptsACheckAndDropsItsResult)
{
    std::promise<void> begun;
    bool reported = false;

    {
        const CheckLoop loop(
            {0ms, 1ms, 1h},
            [&](std::chrono::milliseconds, const std::stop_token& stop) {
                begun.set_value();

                while (!stop.stop_requested())
                    std::this_thread::yield();

                return std::string("stopped");
            },
            [&](const std::string&) { reported = true; });
        begun.get_future().wait();
    }

    EXPECT_FALSE(reported);
}

TEST(ExecSlaveCheckLoopTest, TheEndDoesNotWaitForTheFirstCheck)
{
    bool checked = false;

    {
        const CheckLoop loop(
            {1h, 1h, 1h},
            [&](std::chrono::milliseconds, const std::stop_token&) {
                checked = true;
                return std::string();
            },
            [](const std::string&) {});
    }

    EXPECT_FALSE(checked);
}

} // namespace
} // namespace quelta::execslave
