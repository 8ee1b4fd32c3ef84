// Baseline for requests: the cost of JUCE alone. Connects to the masters with JUCE's connection
// class, as the daemon does, and echoes every record. A start request goes to every master, as the
// daemon's status of a new owner does. Usage: PORT MASTERS. Exits at the end of its standard input.
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include <juce_events/juce_events.h>

#include "support/Frame.h"
#include "support/Loopback.h"
#include "support/ServeUntilInputEnds.h"

namespace {

using namespace quelta;

class EchoConnection;

/** Constant once all are connected; requests arrive only then. */
std::vector<std::unique_ptr<EchoConnection>> connections;

class EchoConnection final : public juce::InterprocessConnection
{
public:
    EchoConnection() : InterprocessConnection(false, frameMagic) {}
    ~EchoConnection() override { disconnect(); }

    void connectionMade() override {}
    void connectionLost() override {}

    void messageReceived(const juce::MemoryBlock& payload) override
    {
        const auto* const record = static_cast<const uint8_t*>(payload.getData());

        if (bench::getType(record) == MasterMessageType::START_REQUEST)
            for (const auto& connection : connections)
                connection->sendMessage(payload);
        else
            sendMessage(payload);
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;

    const int port = std::atoi(argv[1]);

    for (int i = 0; i < std::atoi(argv[2]); ++i)
    {
        const juce::IPAddress address(bench::getMasterIp(i));
        connections.push_back(std::make_unique<EchoConnection>());

        if (!connections.back()->connectToSocket(address.toString(), port, 1000))
            return 1;
    }

    bench::serveUntilInputEnds();
    connections.clear();
    return 0;
}
