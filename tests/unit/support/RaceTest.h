// Base of tests in which events coincide, at many different moments. For more rounds use
// --gtest_repeat.
//
// The graceful stop is short here, since some of these slaves never receive the stop message.
#pragma once

#include "Children.h"
#include "DaemonTest.h"

namespace quelta::test {

class RaceTest : public DaemonTest
{
protected:
    static constexpr uint32_t gracefulStopMs = 200;

    /** Stopping a slave takes at most a poll of 100 ms to notice the request, the graceful stop, a
        poll to see the end, and 500 ms to kill and reap. One second is for a busy machine. */
    static constexpr uint32_t stopBoundMs = 100 + gracefulStopMs + 100 + 500 + 1'000;

    /** Destroying a daemon without a slave takes at most this. */
    static constexpr uint32_t endBoundMs = 1'000;

    RaceTest() { flags::daemonDetail = 1; }

    ~RaceTest() override
    {
        daemon.reset();

        if (processesAreShownAsFiles())
        {
            EXPECT_EQ(getChildren().size(), 0u);
        }
    }

    void startRaceDaemon() { startDaemon({.gracefulStop = gracefulStopMs}); }

    /** Waits for the reply to a stop request, then checks that no record follows it and that the
        slave is free. */
    static void expectStopped(FakeMaster& master)
    {
        EXPECT_LT(timeOf([&master] { EXPECT_TRUE(master.nextOf(stopReply)); }), stopBoundMs);
        expectFree(master);
    }

    /** The owner of the slave. Sends an unknown request type, since no broadcast can be mistaken
        for its reply. */
    static MasterAddress askForOwner(FakeMaster& master)
    {
        constexpr uint32_t unknownRequest = 7;
        master.send(unknownRequest);
        const auto reply = master.nextOf(unexpectedRequest);
        EXPECT_TRUE(reply);
        return reply ? reply->owner : MasterAddress{};
    }

    /** Requires that all records of `master` have been taken. */
    static void expectFree(FakeMaster& master)
    {
        master.send(scanRequest);
        const auto reply = master.next();
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->type, daemonStatus);
        EXPECT_EQ(formatAddress(reply->owner), "0.0.0.0:0");
    }
};

} // namespace quelta::test
