#include "console_master/ConsoleMaster.h"

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

#include "support/FakeNode.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

/** Collects output, and calls `onFlush` at every flush with what there is so far. */
class FlushedText final : public std::stringbuf
{
public:
    std::function<void(const std::string&)> onFlush = [](const std::string&) {};

private:
    int sync() override
    {
        onFlush(str());
        return 0;
    }
};

class ConsoleMasterTest : public ThreadedTest
{
protected:
    ConsoleMasterTest()
    {
        options.timeoutMs = hangLimitMs;
        options.text = "test";
    }

    void addNode(const FakeNode& node) { options.nodes.push_back({"127.0.0.1", node.getPort()}); }

    /** Runs the command to its end and returns the exit status. */
    int run()
    {
        master = std::make_unique<ConsoleMaster>(options, out, err, stopRequest);
        return master->run();
    }

    Options options;
    FlushedText shown;
    std::ostream out{&shown};
    std::ostringstream err;
    StopRequest stopRequest;
    std::unique_ptr<ConsoleMaster> master;
};

TEST_F(ConsoleMasterTest, ScanShowsANodeThatAnswers)
{
    const FakeNode node;
    addNode(node);
    options.command = Command::scan;
    options.json = true;
    EXPECT_EQ(run(), exitAsAsked);
    EXPECT_EQ(shown.str(),
              "[\n  {\n    \"node\": \"" + node.getName() +
                  "\",\n    \"state\": \"free\",\n    \"alias\": \"\",\n    \"gpus\": 0,\n"
                  "    \"slaveVersion\": 0,\n    \"owner\": null,\n    \"ownerText\": null\n"
                  "  }\n]\n");
    EXPECT_EQ(err.str(), "");
}

TEST_F(ConsoleMasterTest, ANodeThatDoesNotAnswerInTimeFailsTheScan)
{
    juce::DatagramSocket silent;
    ASSERT_TRUE(silent.bindToPort(0, "127.0.0.1"));
    options.nodes = {{"127.0.0.1", static_cast<uint16_t>(silent.getBoundPort())}};
    options.command = Command::stop;
    options.timeoutMs = 200;
    EXPECT_EQ(run(), exitNotAsAsked);
    EXPECT_EQ(shown.str(), "127.0.0.1:" + std::to_string(silent.getBoundPort()) + " no answer\n");
}

TEST_F(ConsoleMasterTest, AJunkFrameIsReportedAndTheNodeServedNevertheless)
{
    const FakeNode node(FakeNode::Greeting::junkFrame);
    addNode(node);
    options.command = Command::stop;
    EXPECT_EQ(run(), exitAsAsked);
    EXPECT_EQ(shown.str(), node.getName() + " invalid record\n" + node.getName() +
                               " found: alias \"\", 0 GPUs, version 0, free\n" + node.getName() +
                               " stopped: the node is free\n");
}

TEST_F(ConsoleMasterTest, HoldGivesARunningSlaveBackWhenASignalArrives)
{
    const FakeNode node;
    addNode(node);
    options.command = Command::hold;
    shown.onFlush = [&](const std::string& text) {
        if (text.ends_with(" running\n"))
            stopRequest.receive(std::chrono::milliseconds(0));
    };
    EXPECT_EQ(run(), exitAsAsked);

    const auto begin = shown.str().find(node.getName() + " found");
    ASSERT_NE(begin, std::string::npos);
    const auto self = shown.str().substr(13, begin - 14);
    EXPECT_EQ(shown.str().substr(0, begin), "listening as " + self + "\n");
    EXPECT_EQ(shown.str().substr(begin),
              node.getName() + " found: alias \"\", 0 GPUs, version 0, free\n" + node.getName() +
                  " starting for " + self + "\n" + node.getName() + " running\n" + node.getName() +
                  " stopped: the node is free\n");
    EXPECT_EQ(err.str(), "giving back 1 node, waiting up to 75 s; Ctrl-C again ends at once\n");
}

TEST_F(ConsoleMasterTest, DestructionDisconnectsANodeThatIsStillConnected)
{
    const FakeNode node;
    addNode(node);
    options.command = Command::scan;
    EXPECT_EQ(run(), exitAsAsked);
    EXPECT_FALSE(node.wasDisconnected());

    // JUCE would kill the listener's thread after 4 s.
    EXPECT_LT(timeOf([this] { master.reset(); }), 4000u);

    for (uint32_t waited = 0; waited < hangLimitMs && !node.wasDisconnected(); ++waited)
        juce::Thread::sleep(1);

    EXPECT_TRUE(node.wasDisconnected());
}

TEST_F(ConsoleMasterTest, APortThatIsInUseIsAFailureOfThisMachine)
{
    juce::StreamingSocket other;
    ASSERT_TRUE(other.createListener(0, "127.0.0.1"));
    const FakeNode node;
    addNode(node);
    options.listenPort = static_cast<uint16_t>(other.getBoundPort());
    EXPECT_EQ(run(), exitLocalFailure);
    EXPECT_EQ(shown.str(), "");
    EXPECT_EQ(err.str(), "cannot listen on port " + std::to_string(other.getBoundPort()) +
                             " of 127.0.0.1: is another program using it? Try another "
                             "--listen-port\n");
}

TEST_F(ConsoleMasterTest, AnUnknownHostIsAFailureOfThisMachine)
{
    options.nodes = {{"no such host", 5130}};
    EXPECT_EQ(run(), exitLocalFailure);
    EXPECT_EQ(err.str(), "unknown host \"no such host\"\n");
}

} // namespace
} // namespace quelta::test
