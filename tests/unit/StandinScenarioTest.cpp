#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "standin_slave/ScenarioParser.h"

namespace quelta {

namespace {

using Action = ScenarioStep::Action;

Scenario parse(std::string_view text)
{
    Scenario scenario;
    std::string error;
    EXPECT_TRUE(parseScenario(text, scenario, error)) << error;
    EXPECT_EQ(error, "");
    return scenario;
}

std::string parseError(std::string_view text)
{
    Scenario scenario;
    std::string error;
    EXPECT_FALSE(parseScenario(text, scenario, error));
    return error;
}

std::vector<Action> getActions(const RunScenario& run)
{
    std::vector<Action> actions;

    for (const auto& step : run.steps)
        actions.push_back(step.action);

    return actions;
}

} // namespace

TEST(StandinScenario, AnEmptyFileGivesAWellBehavedSlave)
{
    const auto scenario = parse("");

    EXPECT_EQ(getActions(scenario.info),
              (std::vector{Action::connect, Action::authenticating, Action::wait, Action::info,
                           Action::wait, Action::exit}));
    EXPECT_EQ(scenario.info.steps.back().firstNumber, 0u);
    EXPECT_EQ(getActions(scenario.run),
              (std::vector{Action::connect, Action::authenticating, Action::wait, Action::info,
                           Action::wait, Action::beat}));
    EXPECT_EQ(scenario.run.steps.back().firstNumber, 1000u);
    EXPECT_EQ(scenario.run.steps.back().secondNumber, std::nullopt);
    EXPECT_EQ(scenario.run.onStop, RunScenario::OnStop::exit);
    EXPECT_EQ(scenario.run.stopStatus, 0u);
    EXPECT_TRUE(scenario.run.exitOnLost);
    EXPECT_EQ(scenario.run.version, 4000000u);
    EXPECT_EQ(scenario.run.numGpus, 1u);
}

TEST(StandinScenario, LinesBeforeTheFirstSectionApplyToBothRuns)
{
    const auto scenario =
        parse("gpus 3\nconnect\n[info]\ngpus 4\ncrash\n[run]\nhang\n[info]\nexit 7\n");

    EXPECT_EQ(getActions(scenario.info),
              (std::vector{Action::connect, Action::crash, Action::exit}));
    EXPECT_EQ(scenario.info.numGpus, 4u);
    EXPECT_EQ(getActions(scenario.run), (std::vector{Action::connect, Action::hang}));
    EXPECT_EQ(scenario.run.numGpus, 3u);
}

TEST(StandinScenario, ARunWithoutStepsHasTheDefaultStepsAndItsOwnSettings)
{
    const auto scenario = parse("on-stop ignore\nversion 17\n[run]\nhang\n");

    EXPECT_EQ(scenario.info.steps.size(), 6u);
    EXPECT_EQ(scenario.info.version, 17u);
    EXPECT_EQ(scenario.info.onStop, RunScenario::OnStop::ignore);
    EXPECT_EQ(getActions(scenario.run), std::vector{Action::hang});
}

TEST(StandinScenario, ReadsEveryStep)
{
    const auto run =
        parse(
            "connect\ndisconnect\nsecond-connection\nauthenticating\ninfo\ninfo 4294967295 2\n"
            "status\nbeat 500\nbeat 500 for 3000\nwait 0\nframe\nframe 0d72 CE 7f\n"
            "raw 00ff times 3\nhang\ncrash\nexit 259\n")
            .run;

    EXPECT_EQ(getActions(run),
              (std::vector{Action::connect, Action::disconnect, Action::secondConnection,
                           Action::authenticating, Action::info, Action::info, Action::status,
                           Action::beat, Action::beat, Action::wait, Action::frame, Action::frame,
                           Action::raw, Action::hang, Action::crash, Action::exit}));
    EXPECT_EQ(run.steps[4].firstNumber, std::nullopt);
    EXPECT_EQ(run.steps[5].firstNumber, 4294967295u);
    EXPECT_EQ(run.steps[5].secondNumber, 2u);
    EXPECT_EQ(run.steps[7].secondNumber, std::nullopt);
    EXPECT_EQ(run.steps[8].firstNumber, 500u);
    EXPECT_EQ(run.steps[8].secondNumber, 3000u);
    EXPECT_EQ(run.steps[9].firstNumber, 0u);
    EXPECT_TRUE(run.steps[10].bytes.empty());
    EXPECT_EQ(run.steps[11].bytes, (std::vector<uint8_t>{0x0D, 0x72, 0xCE, 0x7F}));
    EXPECT_EQ(run.steps[11].firstNumber, std::nullopt);
    EXPECT_EQ(run.steps[12].bytes, (std::vector<uint8_t>{0x00, 0xFF}));
    EXPECT_EQ(run.steps[12].firstNumber, 3u);
    EXPECT_EQ(run.steps[15].firstNumber, 259u);
}

TEST(StandinScenario, ReadsEverySetting)
{
    const auto later = parse("on-stop exit-after 2500\non-lost ignore\nversion 5\ngpus 0\n").run;
    EXPECT_EQ(later.onStop, RunScenario::OnStop::exitAfter);
    EXPECT_EQ(later.stopDelay, 2500u);
    EXPECT_FALSE(later.exitOnLost);
    EXPECT_EQ(later.version, 5u);
    EXPECT_EQ(later.numGpus, 0u);

    EXPECT_EQ(parse("on-stop exit 3").run.stopStatus, 3u);
    EXPECT_EQ(parse("on-stop exit 3\non-stop exit").run.stopStatus, 0u);
    EXPECT_TRUE(parse("on-lost ignore\non-lost exit").run.exitOnLost);
}

TEST(StandinScenario, IgnoresCommentsBlanksLineEndsAndTheByteOrderMark)
{
    const auto run =
        parse("\xEF\xBB\xBF# a comment\r\n\r\n \t connect\t# and one behind\r\n   \nhang#").run;
    EXPECT_EQ(getActions(run), (std::vector{Action::connect, Action::hang}));
}

TEST(StandinScenario, ErrorsNameTheLineAndTheReason)
{
    EXPECT_EQ(parseError("connect\n\njump\n"), "line 3: unknown word 'jump'");
    EXPECT_EQ(parseError("connect now"), "line 1: unexpected 'now'");
    EXPECT_EQ(parseError("[walk]"), "line 1: unknown word '[walk]'");
    EXPECT_EQ(parseError("[run] hang"), "line 1: unknown word '[run]'");
    EXPECT_EQ(parseError("info 1"), "line 1: 'info' needs more words");
    EXPECT_EQ(parseError("info 1 2 3"), "line 1: unexpected '3'");
    EXPECT_EQ(parseError("wait"), "line 1: 'wait' needs more words");
    EXPECT_EQ(parseError("wait -1"), "line 1: '-1' is not a number from 0 to 3600000");
    EXPECT_EQ(parseError("wait 3600001"), "line 1: '3600001' is not a number from 0 to 3600000");
    EXPECT_EQ(parseError("exit 4294967296"),
              "line 1: '4294967296' is not a number from 0 to 4294967295");
    EXPECT_EQ(parseError("gpus 1x"), "line 1: '1x' is not a number from 0 to 4294967295");
    EXPECT_EQ(parseError("beat 0"), "line 1: 'beat' needs at least 1 ms");
    EXPECT_EQ(parseError("beat 1 until 2"), "line 1: unknown word 'until'");
    EXPECT_EQ(parseError("beat 1 for"), "line 1: 'beat' needs more words");
    EXPECT_EQ(parseError("frame 0d7"), "line 1: '0d7' is not made of pairs of hex digits");
    EXPECT_EQ(parseError("raw 0g"), "line 1: '0g' is not made of pairs of hex digits");
    EXPECT_EQ(parseError("raw 00 times"), "line 1: 'times' needs a number");
    EXPECT_EQ(parseError("raw 00 times 1 2"), "line 1: unexpected '2'");
    EXPECT_EQ(parseError("raw 0000 times 33554433"), "line 1: more than 67108864 bytes");
    EXPECT_EQ(parseError("on-stop"), "line 1: 'on-stop' needs more words");
    EXPECT_EQ(parseError("on-stop later"), "line 1: unknown word 'later'");
    EXPECT_EQ(parseError("on-stop exit-after"), "line 1: 'on-stop' needs more words");
    EXPECT_EQ(parseError("on-stop ignore 1"), "line 1: unexpected '1'");
    EXPECT_EQ(parseError("on-lost maybe"), "line 1: unknown word 'maybe'");
}

TEST(StandinScenario, ErrorsAreShortAndPrintable)
{
    EXPECT_EQ(parseError(std::string_view("a\0\x7F\xFFz", 5)), "line 1: unknown word 'a???z'");
    EXPECT_EQ(parseError(std::string(100, 'a')),
              "line 1: unknown word '" + std::string(40, 'a') + "...'");
}

TEST(StandinScenario, AnErrorLeavesTheScenarioUnchanged)
{
    Scenario scenario;
    scenario.run.version = 9;
    std::string error;

    EXPECT_FALSE(parseScenario("version 1\nconnect\noops", scenario, error));
    EXPECT_EQ(scenario.run.version, 9u);
    EXPECT_TRUE(scenario.run.steps.empty());
}

TEST(StandinScenario, AScenarioOfMoreThanAMebibyteIsRejected)
{
    const std::string maximum(maxScenarioSize, '\n');
    EXPECT_EQ(parse(maximum).run.steps.size(), 6u);
    EXPECT_EQ(parseError(maximum + "\n"), "line 1: the scenario is longer than 1048576 bytes");
}

} // namespace quelta
