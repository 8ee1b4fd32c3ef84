#include "util/PeerServer.h"

namespace quelta {

namespace {

constexpr int wakeUpTimeoutMs = 1000;
constexpr int acceptPollMs = 10;

} // namespace

bool PeerServer::serve(uint16_t port, const juce::String& bindAddress)
{
    wakeUpAddress = bindAddress.isEmpty() ? juce::String("127.0.0.1") : bindAddress;
    return beginWaitingForSocket(port, bindAddress);
}

void PeerServer::stopServing()
{
    stopping = true;

    if (const auto boundPort = getBoundPort(); boundPort > 0)
    {
        juce::StreamingSocket wakeUp;

        // A busy thread takes the connection from the backlog when it has finished.
        if (wakeUp.connect(wakeUpAddress, boundPort, wakeUpTimeoutMs))
            while (!leaving.wait(wakeUpTimeoutMs) && accepting)
            {}
    }

    while (accepting)
        juce::Thread::sleep(acceptPollMs);

    stop();
}

juce::InterprocessConnection* PeerServer::createConnectionObject()
{
    accepting = true;

    if (stopping)
    {
        juce::Thread::getCurrentThread()->signalThreadShouldExit();
        leaving.signal();
    }
    else if (auto* const connection = acceptConnection())
    {
        return connection; // connectionMade() follows on this thread
    }

    accepting = false;
    return nullptr;
}

} // namespace quelta
