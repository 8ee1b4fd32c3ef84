#include "app/SlaveProcess.h"

#include <windows.h>

#include <atomic>
#include <string_view>

#include "support/StandinSlave.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

std::atomic<int> timesSeen{0};
std::atomic<bool> systemWasRequired{false};

/** A log sink. Runs on the SlaveProcess thread, whose execution state other threads cannot read,
    while the slave's end is logged. */
void lookAtTheThreadsState(const char* line)
{
    if (!std::string_view(line).starts_with("slave process "))
        return;

    const auto state = SetThreadExecutionState(ES_CONTINUOUS);
    SetThreadExecutionState(state);
    systemWasRequired = (state & ES_SYSTEM_REQUIRED) != 0;
    ++timesSeen;
}

class SlaveKeepAwakeTest : public ThreadedTest
{
protected:
    SlaveKeepAwakeTest()
    {
        SetThreadExecutionState(ES_CONTINUOUS); // Wine starts in a state that Windows lacks
        flags::daemonDetail = 1;
        timesSeen = 0;
        addLogSink(lookAtTheThreadsState);
        settings.slaveExecutable = slave.getFile();
        settings.daemonPort = 5000;
    }

    void runSlave(bool infoRequest)
    {
        SlaveProcess process(0x7F000001, 5130, settings, infoRequest, nullptr, lastMonitorPort);
        ASSERT_TRUE(process.waitForThreadToExit(static_cast<int>(hangLimitMs)));
        ASSERT_EQ(timesSeen, 1);
    }

    StandinSlave slave{"[run]\nexit 0\n[info]\nconnect\ninfo\nexit 0"};
    DaemonSettings settings;
    MonitorPort lastMonitorPort{0};
};

TEST_F(SlaveKeepAwakeTest, TheMachineIsKeptAwakeAsLongAsAMastersSlaveRuns)
{
    runSlave(false);
    EXPECT_TRUE(systemWasRequired);
    EXPECT_EQ(SetThreadExecutionState(ES_CONTINUOUS) & ES_SYSTEM_REQUIRED, 0u);
}

TEST_F(SlaveKeepAwakeTest, AnInformationRunDoesNotKeepTheMachineAwake)
{
    runSlave(true);
    EXPECT_FALSE(systemWasRequired);
}

} // namespace
} // namespace quelta::test
