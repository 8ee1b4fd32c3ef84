// Three generations of processes, in sessions of their own and deaf to requests to end, under each
// way of containment. tests/containment/ has the programs.
#include "containment/platform/ProcessTools.h"
#include "support/ContainmentDriver.h"

namespace quelta::test {
namespace {

class ExecSlaveContainmentTest : public ContainmentDriverTest
{
protected:
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
    start("rounds", juce::String(GetParam().numRounds));
    const auto before = readLine();
    EXPECT_NE(before, "");
    EXPECT_EQ(readLine(), before);
}

INSTANTIATE_TEST_SUITE_P(Ways, ExecSlaveContainmentTest, testing::ValuesIn(listContainmentWays()),
                         [](const auto& information) { return information.param.name; });

} // namespace
} // namespace quelta::test
