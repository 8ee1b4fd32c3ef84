// Three generations of processes, in sessions of their own and deaf to requests to end, under each
// way of containment. tests/containment/ has the programs.
#include <gtest/gtest.h>

#include <array>

#include "containment/platform/ProcessTools.h"
#include "support/ContainmentWays.h"
#include "support/HangGuard.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

class ExecSlaveContainmentTest : public testing::TestWithParam<ContainmentWay>
{
protected:
    void SetUp() override
    {
        makePublic(folder.getPath());
        juce::ChildProcess probe;

        if (!GetParam().prefix.isEmpty() &&
            (!probe.start(inWay({"true"})) || !probe.waitForProcessToFinish(limitMs) ||
             probe.getExitCode() != 0))
            GTEST_SKIP() << "not possible here: " << probe.readAllProcessOutput();
    }

    static juce::StringArray inWay(const juce::StringArray& command)
    {
        auto words = GetParam().prefix;
        words.addArray(command);
        return words;
    }

    void start(const char* scenario, const char* end)
    {
        const auto program = juce::File::getSpecialLocation(juce::File::currentExecutableFile)
                                 .getSiblingFile("quelta_test_containment");
        ASSERT_TRUE(
            driver.start(inWay({program.getFullPathName(), scenario, folder.getPath(), end})));
    }

    /** The rest of what the driver prints. */
    std::string readAll()
    {
        auto text = driver.readAllProcessOutput().toStdString();
        std::erase(text, '\r');
        return text;
    }

    std::string readLine()
    {
        std::string line;

        for (char byte = 0; driver.readProcessOutput(&byte, 1) == 1 && byte != '\n';)
            if (byte != '\r')
                line += byte;

        return line;
    }

    bool isAnyGenerationAlive() const
    {
        for (const auto* const number : {"1", "2", "3"})
            if (isLocked(folder.getPath() + "/" + number))
                return true;

        return false;
    }

    void waitUntilAllAreGone() const
    {
        const auto start = juce::Time::getMillisecondCounter();

        while (isAnyGenerationAlive() && juce::Time::getMillisecondCounter() - start < limitMs)
            juce::Thread::sleep(5);

        EXPECT_FALSE(isAnyGenerationAlive());
    }

    static constexpr int limitMs = 60'000;

    TemporaryFolder folder;
    juce::ChildProcess driver;

private:
    HangGuard hangGuard;
};

TEST_P(ExecSlaveContainmentTest, NothingIsLeftAfterTheProgramEnds)
{
    start("end", "exit");
    EXPECT_EQ(readAll(), GetParam().text + "\nliving: 1 2 3\nexit status 7\nliving: none\n");
}

TEST_P(ExecSlaveContainmentTest, NothingIsLeftAfterTheProgramCrashes)
{
    start("end", "crash");
    EXPECT_EQ(readAll(), GetParam().text + "\nliving: 1 2 3\n" + crashText + "\nliving: none\n");
}

TEST_P(ExecSlaveContainmentTest, NothingIsLeftAfterKill)
{
    start("kill", "exit");
    EXPECT_EQ(readAll(), GetParam().text + "\nliving: 1 2 3\n" + killText + "\nliving: none\n");
}

TEST_P(ExecSlaveContainmentTest, NothingIsLeftAfterDestruction)
{
    start("destroy", "exit");
    EXPECT_EQ(readAll(), GetParam().text + "\nliving: 1 2 3\nliving: none\n");
}

TEST_P(ExecSlaveContainmentTest, NothingIsLeftAfterTheExecSlaveIsKilled)
{
    start("hold", "exit");
    EXPECT_EQ(readLine(), GetParam().text);
    EXPECT_EQ(readLine(), "living: 1 2 3");
    driver.kill();
    waitUntilAllAreGone();
}

TEST_P(ExecSlaveContainmentTest, NothingIsLeftAfterTheExecSlaveExits)
{
    start("leave", "exit");
    EXPECT_EQ(readAll(), GetParam().text + "\nliving: 1 2 3\n");
    waitUntilAllAreGone();
}

TEST_P(ExecSlaveContainmentTest, ManyRoundsLeaveNoDescriptorThreadProcessOrGroup)
{
    start("rounds", manyRounds);
    const auto before = readLine();
    EXPECT_NE(before, "");
    EXPECT_EQ(readLine(), before);
}

INSTANTIATE_TEST_SUITE_P(Ways, ExecSlaveContainmentTest, testing::ValuesIn(listContainmentWays()),
                         [](const auto& information) { return information.param.name; });

} // namespace
} // namespace quelta::test
