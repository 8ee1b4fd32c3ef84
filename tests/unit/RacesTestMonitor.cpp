// A slave monitor is destroyed while its slave keeps sending.
#include <memory>

#include "slave/SlaveMonitor.h"
#include "support/Repeating.h"
#include "support/SlaveVoice.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

/** The destructor only joins threads that are about to end; the rest is for a busy machine. */
constexpr uint32_t endBoundMs = 1'000;

class RacesTestMonitor : public ThreadedTest
{
protected:
    MonitorPort lastMonitorPort{0};
};

TEST_F(RacesTestMonitor, TheEndUnderAFloodOfMessagesTakesLessThanASecond)
{
    for (int round = 0; round < 40; ++round)
    {
        auto monitor = std::make_unique<SlaveMonitor>(uint16_t{5000}, lastMonitorPort);
        SlaveVoice slave(monitor->getPort());
        ASSERT_TRUE(log.waitForLine("started to monitor slave"));
        const Repeating flood([&slave] { slave.sayStatus(); });
        shiftMoment(round % 4);
        EXPECT_LT(timeOf([&monitor] { monitor.reset(); }), endBoundMs);
        log.clear();
    }
}

TEST_F(RacesTestMonitor, TheEndWhileStrangersConnectTakesLessThanASecond)
{
    for (int round = 0; round < 40; ++round)
    {
        auto monitor = std::make_unique<SlaveMonitor>(uint16_t{5000}, lastMonitorPort);
        const auto port = monitor->getPort();
        const Repeating knocking([port] {
            constexpr int timeoutMs = 50; // some systems spend all of it on a closed port
            const SlaveVoice stranger(port, timeoutMs);
        });
        ASSERT_TRUE(log.waitForLine("multiple connections requested for slave monitor"));
        EXPECT_LT(timeOf([&monitor] { monitor.reset(); }), endBoundMs);
        log.clear();
    }
}

TEST_F(RacesTestMonitor, StatusAndStopAreSafeWhileTheSlaveConnectsAndLeaves)
{
    for (int round = 0; round < 20; ++round)
    {
        SlaveMonitor monitor(5000, lastMonitorPort);
        const Repeating asking([&monitor] {
            SlaveStatus status = STATUS_STARTING;
            uint32_t silence = 0;
            monitor.getStatus(status, silence);
            EXPECT_LE(status, STATUS_RUNNING);
            EXPECT_LE(monitor.getNumGpus(), 2u);
            monitor.sendStopMessage();
        });
        SlaveVoice slave(monitor.getPort());
        slave.sayInfo();
        EXPECT_EQ(slave.hear(), framedStopMessage);
    }
}

} // namespace
} // namespace quelta::test
