// Baseline for an idle daemon: the same JUCE connections, a loop that wakes every 100 ms, and a
// JUCE timer of 500 ms that does nothing. Given a slave's executable, also what a running slave
// adds: a JUCE server, the slave's connection and a second loop of 100 ms. Usage: PORT MASTERS
// [SLAVE]. Exits at the end of its standard input.
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <juce_events/juce_events.h>

#include "messages/Framing.h"
#include "support/Loopback.h"
#include "support/ServeUntilInputEnds.h"

namespace {

using namespace quelta;

constexpr int waitMs = 100;
constexpr int tickMs = 500;

class BareConnection final : public juce::InterprocessConnection
{
public:
    BareConnection() : InterprocessConnection(false, frameMagic) {}
    ~BareConnection() override { disconnect(); }

    void connectionMade() override {}
    void connectionLost() override {}
    void messageReceived(const juce::MemoryBlock&) override {}
};

class BareServer final : public juce::InterprocessConnectionServer
{
public:
    ~BareServer() override { stop(); }

    juce::InterprocessConnection* createConnectionObject() override { return &connection; }

private:
    BareConnection connection;
};

class BareTimer final : public juce::Timer
{
public:
    BareTimer() { startTimer(tickMs); }
    void timerCallback() override {}
};

/** Waits for datagrams; none arrives. */
class SelectLoop final : public juce::Thread
{
public:
    SelectLoop() : Thread("select loop") { startThread(); }
    ~SelectLoop() override { stopThread(-1); }

    void run() override
    {
        const int handle = socket(AF_INET, SOCK_DGRAM, 0);
        const auto address = bench::makeSocketAddress(bench::firstMasterIp, 0);
        bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        pollfd waited{handle, POLLIN, 0};

        while (!threadShouldExit())
            poll(&waited, 1, waitMs);

        close(handle);
    }
};

/** Starts the slave and checks every 100 ms whether it still runs. */
class SlaveLoop final : public juce::Thread
{
public:
    SlaveLoop(std::string slavePath, int serverPort)
        : Thread("slave loop"), path(std::move(slavePath)), port(std::to_string(serverPort))
    {
        startThread();
    }

    ~SlaveLoop() override { stopThread(-1); }

    void run() override
    {
        std::string option = "--daemon-port";
        char* const arguments[] = {path.data(), option.data(), port.data(), nullptr};
        pid_t pid = 0;

        if (posix_spawn(&pid, path.c_str(), nullptr, nullptr, arguments, environ) != 0)
            return;

        while (!threadShouldExit() && waitpid(pid, nullptr, WNOHANG) == 0)
            sleep(waitMs);

        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

private:
    std::string path;
    std::string port;
};

void runUntilInputEnds()
{
    juce::LinuxEventLoop::registerFdCallback(STDIN_FILENO, [](int input) {
        char ignored = 0;

        if (read(input, &ignored, 1) <= 0)
            juce::MessageManager::getInstance()->stopDispatchLoop();
    });
    juce::MessageManager::getInstance()->runDispatchLoop();
    juce::LinuxEventLoop::unregisterFdCallback(STDIN_FILENO);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;

    const juce::ScopedJuceInitialiser_GUI juceInitialiser;
    const int port = std::atoi(argv[1]);
    std::vector<std::unique_ptr<BareConnection>> connections;

    for (int i = 0; i < std::atoi(argv[2]); ++i)
    {
        connections.push_back(std::make_unique<BareConnection>());

        if (!connections.back()->connectToSocket(juce::IPAddress(bench::getMasterIp(i)).toString(),
                                                 port, 1000))
            return 1;
    }

    const SelectLoop select;
    const BareTimer timer;
    BareServer server;
    std::unique_ptr<SlaveLoop> slave;

    if (argc > 3 && server.beginWaitingForSocket(0, "127.0.0.1"))
        slave = std::make_unique<SlaveLoop>(argv[3], server.getBoundPort());

    bench::sayReady();
    runUntilInputEnds();
    return 0;
}
