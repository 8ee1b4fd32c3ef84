// The base of tests in which things happen at the same time, at many different moments. More rounds
// than the tests have by themselves are had by --gtest_repeat.
//
// The time that a slave is given to end is short here, since some of these slaves never hear that
// they have to.
#pragma once

#include "Children.h"
#include "DaemonTest.h"

namespace quelta::test {

class RaceTest : public DaemonTest
{
protected:
    static constexpr uint32_t gracefulStopMs = 200;

    /** The longest that stopping a slave may take: a poll of 100 ms to notice, the time to end,
        a poll to see that it has ended, 500 ms to kill and reap it. The second is for a busy
        machine. */
    static constexpr uint32_t stopBoundMs = 100 + gracefulStopMs + 100 + 500 + 1'000;

    /** The longest that the end of a daemon without a slave may take. */
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

    void startRaceDaemon() { startDaemon({10'000, 4'000, 10'000, gracefulStopMs}); }

    /** Has `master` stop the slave and checks that it is free then, and that nothing comes behind
        the reply. */
    static void expectStopped(FakeMaster& master)
    {
        EXPECT_LT(timeOf([&master] { EXPECT_TRUE(master.nextOf(stopReply)); }), stopBoundMs);
        expectFree(master);
    }

    /** Who owns the slave. Asked by a request that nobody knows, since no broadcast looks like its
        reply. */
    static MasterAddress askForOwner(FakeMaster& master)
    {
        constexpr uint32_t unknownRequest = 7;
        master.send(unknownRequest);
        const auto reply = master.nextOf(unexpectedRequest);
        EXPECT_TRUE(reply);
        return reply ? reply->owner : MasterAddress{};
    }

    /** For a master whose records have all been taken. */
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
