#include "masters/MasterSwarm.h"

#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "support/Loopback.h"

namespace quelta::bench {

namespace {

constexpr int maxPortTries = 20;

enum Kind : uint32_t
{
    listenerKind,
    connectionKind,
    processKind
};

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

/** Returns the listening socket, or -1 if the port is in use on this address. */
int listenOn(uint32_t ip, uint16_t port)
{
    const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);

    if (handle < 0)
        fail("socket");

    const auto address = makeSocketAddress(ip, port);

    if (bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        listen(handle, 4) == 0)
        return handle;

    close(handle);
    return -1;
}

uint16_t getBoundPort(int handle)
{
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

} // namespace

int64_t now()
{
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

MasterSwarm::MasterSwarm(int count)
    : masters(static_cast<size_t>(count)), poller(epoll_create1(EPOLL_CLOEXEC))
{
    if (poller < 0)
        fail("epoll_create1");

    for (int tries = 0; !listenOnOnePort(); ++tries)
        if (tries == maxPortTries)
            throw std::runtime_error("no port is free on all addresses");

    for (int i = 0; i < count; ++i)
        watch(at(i).listener, listenerKind, i);
}

MasterSwarm::~MasterSwarm()
{
    closeAll();
    close(poller);
}

/** The kernel chooses the port of the first master. Returns false if that port is in use on another
    master's address. */
bool MasterSwarm::listenOnOnePort()
{
    port = 0;

    for (int i = 0; i < getCount(); ++i)
    {
        at(i).listener = listenOn(getMasterIp(i), port);

        if (at(i).listener < 0)
        {
            closeAll();
            return false;
        }

        if (port == 0)
            port = getBoundPort(at(i).listener);
    }

    return true;
}

void MasterSwarm::closeAll()
{
    for (auto& master : masters)
        for (auto* const handle : {&master.listener, &master.connection})
            if (*handle >= 0)
            {
                close(*handle);
                *handle = -1;
            }
}

void MasterSwarm::watch(int handle, uint32_t kind, int master)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = (static_cast<uint64_t>(kind) << 32) | static_cast<uint32_t>(master);

    if (epoll_ctl(poller, EPOLL_CTL_ADD, handle, &event) != 0)
        fail("epoll_ctl");
}

void MasterSwarm::watchProcess(int pid)
{
    if (process >= 0)
        close(process);

    processEnded = 0;
    process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));

    if (process < 0)
        fail("pidfd_open");

    watch(process, processKind, 0);
}

void MasterSwarm::send(int master, MasterMessageType type)
{
    auto frame = makeFrame(makeBeacon(master));
    writeLittleEndian32(frame.data() + frameHeaderSize + 8, static_cast<uint32_t>(type));

    if (::send(at(master).connection, frame.data(), frame.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(frame.size()))
        fail("send");
}

MasterDaemonMessage::Bytes MasterSwarm::makeBeacon(int master) const
{
    MasterDaemonMessage message;
    message.masterAddress = {getMasterIp(master), port};
    message.masterText = "benchmark";
    return encodeMasterMessage(message);
}

bool MasterSwarm::readUntil(const std::function<bool()>& done, int timeoutMs,
                            const OnRecord& onRecord, const std::function<void()>& idle, int idleMs)
{
    const auto deadline = now() + int64_t{timeoutMs} * 1'000'000;
    auto nextIdle = now();
    std::array<epoll_event, 64> events;

    while (!done())
    {
        if (now() > deadline)
            return false;

        if (idle && now() >= nextIdle)
        {
            idle();
            nextIdle = now() + int64_t{idleMs} * 1'000'000;
        }

        const int count =
            epoll_wait(poller, events.data(), static_cast<int>(events.size()), idleMs);

        for (int i = 0; i < count; ++i)
            serve(events[static_cast<size_t>(i)].data.u64, onRecord);
    }

    return true;
}

/** Serves one event; `data` tells what kind of descriptor it came from, and whose. */
void MasterSwarm::serve(uint64_t data, const OnRecord& onRecord)
{
    const auto master = static_cast<int>(data & 0xFFFFFFFF);

    if (data >> 32 == connectionKind)
    {
        read(master, onRecord);
    }
    else if (data >> 32 == listenerKind)
    {
        accept(master);
    }
    else
    {
        processEnded = now();
        close(process);
        process = -1;
    }
}

void MasterSwarm::accept(int master)
{
    auto& accepted = at(master);
    accepted.connection = accept4(accepted.listener, nullptr, nullptr, SOCK_CLOEXEC);

    if (accepted.connection < 0)
        fail("accept");

    const int on = 1;
    setsockopt(accepted.connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    close(accepted.listener);
    accepted.listener = -1;
    ++numConnected;
    lastConnected = now();
    watch(accepted.connection, connectionKind, master);
}

void MasterSwarm::read(int master, const OnRecord& onRecord)
{
    std::array<uint8_t, 4096> bytes;
    auto& reading = at(master);
    const auto count = recv(reading.connection, bytes.data(), bytes.size(), MSG_DONTWAIT);

    if (count <= 0)
    {
        close(reading.connection);
        reading.connection = -1;
        --numConnected;
        return;
    }

    auto& unread = reading.unread;
    unread.insert(unread.end(), bytes.begin(), bytes.begin() + count);
    size_t taken = 0;

    for (; unread.size() - taken >= sizeof(Frame); taken += sizeof(Frame))
        onRecord(master, getType(unread.data() + taken + frameHeaderSize));

    unread.erase(unread.begin(), unread.begin() + static_cast<ptrdiff_t>(taken));
}

} // namespace quelta::bench
