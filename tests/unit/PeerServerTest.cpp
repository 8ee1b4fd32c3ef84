#include "util/PeerServer.h"

#include <atomic>
#include <functional>

#include "support/Descriptors.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

/** Refuses every client, after calling `duringAccept`. */
class RefusingServer final : public PeerServer
{
public:
    explicit RefusingServer(std::function<void()> callback = [] {})
        : duringAccept(std::move(callback))
    {}

    ~RefusingServer() override { stopServing(); }

    using PeerServer::serve;
    using PeerServer::stopServing;

private:
    juce::InterprocessConnection* acceptConnection() override
    {
        duringAccept();
        return nullptr;
    }

    const std::function<void()> duringAccept;
};

/** JUCE kills a server's thread 4 s after it was told to stop. */
constexpr uint32_t juceStopTimeoutMs = 4000;

class PeerServerTest : public ThreadedTest
{};

TEST_F(PeerServerTest, ServesAnyFreePortOfOneAddress)
{
    RefusingServer server;
    ASSERT_TRUE(server.serve(0, "127.0.0.1"));
    EXPECT_GT(server.getBoundPort(), 0);
}

TEST_F(PeerServerTest, APortInUseIsNotServed)
{
    RefusingServer first, second;
    ASSERT_TRUE(first.serve(0, "127.0.0.1"));
    EXPECT_FALSE(second.serve(static_cast<uint16_t>(first.getBoundPort()), "127.0.0.1"));
}

TEST_F(PeerServerTest, StoppingLeavesNoDescriptorBehind)
{
    if (!descriptorsCanBeCounted())
        GTEST_SKIP() << "the system does not show a process's descriptors as files";

    const auto stopOne = [] {
        RefusingServer server;
        server.serve(0, "127.0.0.1");
    };
    stopOne();
    const auto before = countDescriptors();

    for (int round = 0; round < 50; ++round)
        stopOne();

    EXPECT_EQ(countDescriptors(), before);
}

TEST_F(PeerServerTest, StoppingDoesNotAskForAConnection)
{
    std::atomic<int> accepted{0};
    RefusingServer server([&] { ++accepted; });
    ASSERT_TRUE(server.serve(0));
    server.stopServing();
    server.stopServing();
    EXPECT_EQ(accepted, 0);
}

TEST_F(PeerServerTest, StoppingWaitsForAClientThatIsBeingAccepted)
{
    juce::WaitableEvent entered;
    std::atomic<bool> left{false};
    RefusingServer server([&] {
        entered.signal();
        juce::Thread::sleep(juceStopTimeoutMs + 2000);
        left = true;
    });
    ASSERT_TRUE(server.serve(0, "127.0.0.1"));

    juce::StreamingSocket client;
    ASSERT_TRUE(client.connect("127.0.0.1", server.getBoundPort(), 3000));
    ASSERT_TRUE(entered.wait(static_cast<int>(hangLimitMs)));
    server.stopServing();
    EXPECT_TRUE(left);
}

} // namespace
} // namespace quelta::test
