#include "masters/Commands.h"

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "support/Loopback.h"

namespace quelta::bench {

namespace {

constexpr int timeoutMs = 20'000;
constexpr int announceIntervalMs = 5;

/** A burst that fits the receive buffer of a busy daemon. */
constexpr int beaconsAtOnce = 50;

std::string print(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string print(const char* format, ...)
{
    std::array<char, 400> text;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return text.data();
}

void require(bool happened, const char* what)
{
    if (!happened)
        throw std::runtime_error(std::string("timed out waiting for ") + what);
}

double getQuantile(std::vector<int64_t>& values, double quantile)
{
    if (values.empty())
        return 0;

    const auto index = static_cast<ptrdiff_t>(quantile * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + index, values.end());
    return static_cast<double>(values[static_cast<size_t>(index)]);
}

} // namespace

Commands::Commands(MasterSwarm& swarmToCommand, uint16_t daemonPort)
    : swarm(swarmToCommand),
      port(daemonPort),
      socketHandle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{}

Commands::~Commands()
{
    close(socketHandle);
}

std::string Commands::run(const std::string& command)
{
    std::istringstream words(command);
    std::string name;
    int64_t first = 0;
    int64_t second = 0;
    words >> name >> first >> second;

    if (name == "announce" || name == "accept")
        return connectAll(name == "announce" ? Beacons::send : Beacons::none);
    if (name == "scan")
        return scan(static_cast<int>(first), static_cast<int>(second));
    if (name == "beacons")
        return sendBeacons(static_cast<int>(first), second);
    if (name == "start")
        return start();
    if (name == "stop")
        return stop(static_cast<int>(first));
    if (name == "kill")
        return kill(static_cast<int>(first));

    throw std::runtime_error("unknown command " + name);
}

/** Sends beacons of some of the masters that are not connected yet. */
void Commands::announceNext()
{
    const auto daemon = makeSocketAddress(firstMasterIp, port);

    for (int sent = 0, seen = 0; seen < swarm.getCount() && sent < beaconsAtOnce; ++seen)
    {
        const auto master = nextToAnnounce++ % swarm.getCount();

        if (swarm.isConnected(master))
            continue;

        const auto beacon = swarm.makeBeacon(master);
        sendto(socketHandle, beacon.data(), beacon.size(), 0,
               reinterpret_cast<const sockaddr*>(&daemon), sizeof(daemon));
        ++sent;
    }
}

std::string Commands::connectAll(Beacons beacons)
{
    const auto done = [this] { return swarm.getNumConnected() == swarm.getCount(); };
    const auto idle = [this, beacons] {
        if (beacons == Beacons::send)
            announceNext();
    };

    require(swarm.readUntil(
                done, timeoutMs, [](int, MasterMessageType) {}, idle, announceIntervalMs),
            "the connections");
    return print("{\"connected_ns\": %lld}", static_cast<long long>(swarm.getLastConnected()));
}

std::string Commands::scan(int numAsking, int milliseconds)
{
    std::vector<int64_t> asked(static_cast<size_t>(numAsking));
    std::vector<int64_t> roundTrips;
    roundTrips.reserve(1 << 20);
    const auto ask = [&](int master) {
        asked[static_cast<size_t>(master)] = now();
        swarm.send(master, MasterMessageType::SCAN_REQUEST);
    };

    const auto started = now();
    const auto end = started + int64_t{milliseconds} * 1'000'000;
    int outstanding = numAsking;

    for (int i = 0; i < numAsking; ++i)
        ask(i);

    const auto onRecord = [&](int master, MasterMessageType) {
        const auto arrived = now();
        roundTrips.push_back(arrived - asked[static_cast<size_t>(master)]);

        if (arrived < end)
            ask(master);
        else
            --outstanding;
    };

    require(swarm.readUntil([&] { return outstanding == 0; }, milliseconds + timeoutMs, onRecord),
            "an answer");
    const auto took = now() - started;
    return print("{\"requests\": %zu, \"ns\": %lld, \"median_ns\": %.0f, \"p99_ns\": %.0f}",
                 roundTrips.size(), static_cast<long long>(took), getQuantile(roundTrips, 0.5),
                 getQuantile(roundTrips, 0.99));
}

std::string Commands::sendBeacons(int count, int64_t rate)
{
    const auto beacon = swarm.makeBeacon(0);
    const auto daemon = makeSocketAddress(firstMasterIp, port);
    const auto started = now();

    for (int i = 0; i < count; ++i)
    {
        while (rate > 0 && now() - started < int64_t{i} * 1'000'000'000 / rate)
        {}

        sendto(socketHandle, beacon.data(), beacon.size(), 0,
               reinterpret_cast<const sockaddr*>(&daemon), sizeof(daemon));
    }

    return print("{\"sent\": %d, \"ns\": %lld}", count, static_cast<long long>(now() - started));
}

std::string Commands::start()
{
    int statuses = 0;
    int64_t lastStatus = 0;
    bool replied = false;
    const auto sent = now();
    swarm.send(0, MasterMessageType::START_REQUEST);

    const auto onRecord = [&](int master, MasterMessageType type) {
        if (master == 0 && type == MasterMessageType::START_REPLY)
            replied = true;

        // The echo baseline sends the request itself to every master.
        if (type == MasterMessageType::DAEMON_STATUS || type == MasterMessageType::START_REQUEST)
        {
            ++statuses;
            replied = replied || type == MasterMessageType::START_REQUEST;
            lastStatus = now();
        }
    };

    require(swarm.readUntil([&] { return replied && statuses >= swarm.getCount(); }, timeoutMs,
                            onRecord),
            "the status of the slave's owner");
    return print("{\"sent_ns\": %lld, \"last_status_ns\": %lld}", static_cast<long long>(sent),
                 static_cast<long long>(lastStatus));
}

std::string Commands::stop(int slavePid)
{
    int statuses = 0;
    int64_t replied = 0;

    if (slavePid != 0)
        swarm.watchProcess(slavePid);

    const auto sent = now();
    swarm.send(0, MasterMessageType::STOP_REQUEST);

    const auto onRecord = [&](int, MasterMessageType type) {
        if (type == MasterMessageType::STOP_REPLY)
            replied = now();
        else if (type == MasterMessageType::DAEMON_STATUS)
            ++statuses;
    };
    const auto done = [&] {
        return replied != 0 && statuses >= swarm.getCount() &&
               (slavePid == 0 || swarm.getProcessEnded() != 0);
    };

    require(swarm.readUntil(done, timeoutMs, onRecord), "the end of the slave");
    return print("{\"sent_ns\": %lld, \"ended_ns\": %lld, \"replied_ns\": %lld}",
                 static_cast<long long>(sent), static_cast<long long>(swarm.getProcessEnded()),
                 static_cast<long long>(replied));
}

std::string Commands::kill(int slavePid)
{
    int64_t told = 0;
    swarm.watchProcess(slavePid);
    ::kill(slavePid, SIGKILL);

    const auto onRecord = [&](int master, MasterMessageType type) {
        if (master == 0 && type == MasterMessageType::SLAVE_FAILED)
            told = now();
    };

    require(swarm.readUntil([&] { return told != 0 && swarm.getProcessEnded() != 0; }, timeoutMs,
                            onRecord),
            "the notification of the slave's end");
    return print("{\"ended_ns\": %lld, \"told_ns\": %lld}",
                 static_cast<long long>(swarm.getProcessEnded()), static_cast<long long>(told));
}

} // namespace quelta::bench
