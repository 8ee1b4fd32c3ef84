#include <winsock2.h>

#include "ImportPatch.h"
#include "platform/Sockets.h"
#include "slave/SlaveMonitor.h"
#include "support/ThreadedTest.h"

extern "C" decltype(&bind) __imp_bind;

namespace quelta::test {
namespace {

class SharedPortTest : public ThreadedTest
{
protected:
    SharedPortTest() { EXPECT_TRUE(stranger.createListener(0, "127.0.0.1")); }

    uint16_t getTakenPort() const { return static_cast<uint16_t>(stranger.getBoundPort()); }

    juce::StreamingSocket stranger; ///< Listens on one address only.
};

TEST_F(SharedPortTest, AListenerOnOneAddressIsFound)
{
    EXPECT_TRUE(platform::listenerWouldSharePort(getTakenPort()));
}

TEST_F(SharedPortTest, AFreePortIsNotShared)
{
    const auto port = getTakenPort();
    stranger.close();
    EXPECT_FALSE(platform::listenerWouldSharePort(port));
}

TEST_F(SharedPortTest, PortZeroIsNotShared)
{
    EXPECT_FALSE(platform::listenerWouldSharePort(0));
}

TEST_F(SharedPortTest, CheckingKeepsThePortFree)
{
    const auto port = getTakenPort();
    stranger.close();
    ASSERT_FALSE(platform::listenerWouldSharePort(port));
    EXPECT_TRUE(stranger.createListener(port, {}));
}

uint16_t sharedPort = 0;
decltype(&bind) systemsBind = nullptr;

bool isExclusive(SOCKET socket)
{
    BOOL exclusive = FALSE;
    int size = sizeof(exclusive);
    return getsockopt(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<char*>(&exclusive),
                      &size) == 0 &&
           exclusive != FALSE;
}

/** Imitates Windows, where a wildcard bind succeeds beside a socket on one address, which Wine
    refuses: binds to another single address instead. */
int WSAAPI bindLikeWindows(SOCKET socket, const sockaddr* name, int size)
{
    auto address = *reinterpret_cast<const sockaddr_in*>(name);

    if (address.sin_port == htons(sharedPort) && address.sin_addr.s_addr == htonl(INADDR_ANY) &&
        !isExclusive(socket))
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);

    return systemsBind(socket, reinterpret_cast<const sockaddr*>(&address), size);
}

TEST_F(SharedPortTest, TheWindowsRulesAreImitated)
{
    sharedPort = getTakenPort();
    const ImportPatch patch(__imp_bind, bindLikeWindows);
    systemsBind = patch.getOriginal();
    EXPECT_TRUE(juce::StreamingSocket().createListener(sharedPort, {}));
}

TEST_F(SharedPortTest, AMonitorPassesOverAPortThatItWouldShare)
{
    sharedPort = getTakenPort();
    const ImportPatch patch(__imp_bind, bindLikeWindows);
    systemsBind = patch.getOriginal();
    MonitorPort lastMonitorPort{0};
    const SlaveMonitor monitor(static_cast<uint16_t>(sharedPort - 1), lastMonitorPort);
    EXPECT_GT(monitor.getPort(), sharedPort);
}

} // namespace
} // namespace quelta::test
