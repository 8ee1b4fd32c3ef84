#include "console_master/ConsoleMaster.h"

#include <algorithm>
#include <ostream>

#include "console_master/platform/HostLookup.h"

namespace quelta {

namespace {

constexpr uint32_t beaconIntervalMs = 500;
constexpr std::chrono::milliseconds tickInterval{50};

uint32_t now()
{
    return juce::Time::getMillisecondCounter();
}

bool isThisMachine(uint32_t ip)
{
    if (isLoopback(ip))
        return true;

    const auto own = juce::IPAddress::getAllAddresses();
    return std::any_of(own.begin(), own.end(), [ip](const juce::IPAddress& address) {
        return parseIp(address.toString().toStdString()) == ip;
    });
}

/** Maps all addresses of this machine to one, because a daemon on this machine may connect from any
    of them. */
uint32_t machineOf(uint32_t ip)
{
    return isThisMachine(ip) ? 0 : ip;
}

} // namespace

ConsoleMaster::ConsoleMaster(const Options& givenOptions, std::ostream& output,
                             std::ostream& errors, const StopRequest& givenStopRequest)
    : options(givenOptions),
      out(output),
      err(errors),
      stopRequest(givenStopRequest),
      board(givenOptions.command, givenOptions.timeoutMs),
      display(givenOptions, output)
{}

int ConsoleMaster::run()
{
    if (!prepare())
        return exitLocalFailure;

    while (!isFinished())
    {
        sendBeacons();

        for (const auto& event : inbox.take(tickInterval))
        {
            handle(event);
            carryOut();
        }

        // Output that can no longer be written has the same effect as Ctrl-C.
        if ((stopRequest.isPending() || !out) && !std::exchange(released, true))
            release();

        board.tick(now());
        carryOut();

        if (now() - startedAt >= options.timeoutMs)
            reportUnansweredBroadcast();
    }

    if (options.command == Command::scan)
        reportUnansweredBroadcast();

    display.showResult(board.getNodes());
    return exitStatus();
}

bool ConsoleMaster::prepare()
{
    warnOfForeignAddress();

    std::map<uint32_t, size_t> nodesOnMachine;

    for (const auto& node : options.nodes)
        if (!addTarget(node, nodesOnMachine))
            return false;

    if (options.broadcast)
    {
        std::map<uint32_t, size_t> noOthers;

        if (!addTarget(*options.broadcast, noOthers))
            return false;
    }

    if (!openListeners())
        return false;

    startedAt = now();
    beaconsSentAt = startedAt - beaconIntervalMs;
    addNodes();
    showListening();
    return true;
}

void ConsoleMaster::warnOfForeignAddress()
{
    if (options.address && !isThisMachine(*options.address))
        err << "warning: " << formatIp(*options.address)
            << " is not an address of this machine; nodes that connect to it may reach another "
               "one\n";
}

bool ConsoleMaster::addTarget(const NodeName& node, std::map<uint32_t, size_t>& nodesOnMachine)
{
    const auto ip = lookUpHost(node.host);

    if (!ip)
    {
        err << "unknown host \"" << node.host << "\"\n";
        return false;
    }

    const auto announced = options.address ? options.address : localAddressTowards(*ip);

    if (!announced)
    {
        err << "no route to " << node.host << "; give this machine's address with --address\n";
        return false;
    }

    targets.push_back({formatNode(node),
                       *ip,
                       node.port,
                       nodesOnMachine[machineOf(*ip)]++,
                       {*announced, 0},
                       false});
    return true;
}

bool ConsoleMaster::openListeners()
{
    size_t count = 0;

    for (const auto& target : targets)
        count = std::max(count, target.listener + 1);

    for (size_t i = 0; i < count; ++i)
    {
        // A master that announces a loopback address must not be reachable from other machines.
        const auto isPrivate = [i](const Target& t) {
            return t.listener != i || isLoopback(t.self.ip);
        };
        const auto first = std::find_if(targets.begin(), targets.end(),
                                        [i](const Target& target) { return target.listener == i; });
        const uint32_t ip =
            std::all_of(targets.begin(), targets.end(), isPrivate) ? first->self.ip : 0;
        const auto port = options.listenPort == 0 ? 0 : options.listenPort + i;
        listeners.push_back(std::make_unique<MasterListener>(i, inbox));

        if (port > 65535 || !listeners.back()->open(ip, static_cast<uint16_t>(port)))
        {
            err << "cannot listen on port " << port << " of "
                << (ip == 0 ? std::string("this machine") : formatIp(ip))
                << ": is another program using it? Try another --listen-port\n";
            return false;
        }
    }

    for (auto& target : targets)
        target.self.port = listeners[target.listener]->getPort();

    return true;
}

void ConsoleMaster::addNodes()
{
    for (size_t i = 0; i < options.nodes.size(); ++i)
    {
        const auto& target = targets[i];
        const auto node = board.addNode(target.name, target.self, startedAt);
        nodeOfMachine[{target.listener, machineOf(target.ip)}] = node;
    }
}

void ConsoleMaster::handle(const PeerEvent& event)
{
    if (event.kind == PeerEvent::Kind::connected)
        return handleConnection(event);

    const auto found = nodeOfConnection.find(event.connection);

    if (found == nodeOfConnection.end())
        return;

    const auto node = found->second;

    if (event.kind == PeerEvent::Kind::record)
        board.received(node, event.message, now());
    else if (event.kind == PeerEvent::Kind::junk)
        board.receivedJunk(node);
    else
    {
        nodeOfConnection.erase(found);
        connectionOfNode.erase(node);
        board.disconnected(node, now());
    }
}

void ConsoleMaster::handleConnection(const PeerEvent& event)
{
    const auto node = findNode(event);

    if (!node)
    {
        if (strangers.insert(event.peerIp).second)
            err << "ignoring a connection from " << formatIp(event.peerIp)
                << ", which is not one of the requested nodes\n";

        return;
    }

    // A daemon that connects again has dropped its earlier connection, even if this end has not
    // noticed yet.
    if (const auto earlier = connectionOfNode.find(*node); earlier != connectionOfNode.end())
        nodeOfConnection.erase(earlier->second);

    connectionOfNode[*node] = event.connection;
    nodeOfConnection[event.connection] = *node;
    board.connected(*node, now());
}

std::optional<size_t> ConsoleMaster::findNode(const PeerEvent& event)
{
    const MachineKey machine{event.connection.listener, machineOf(event.peerIp)};

    if (const auto found = nodeOfMachine.find(machine); found != nodeOfMachine.end())
        return found->second;

    if (!options.broadcast || event.connection.listener != 0)
        return std::nullopt;

    const auto name = formatNode({formatIp(event.peerIp), options.broadcast->port});
    return nodeOfMachine[machine] = board.addNode(name, targets.back().self, now());
}

void ConsoleMaster::sendBeacons()
{
    if (now() - beaconsSentAt < beaconIntervalMs)
        return;

    beaconsSentAt = now();

    for (auto& target : targets)
    {
        const auto beacon =
            encodeMasterMessage(message(MasterMessageType::SCAN_REQUEST, target.self));
        const auto sent = beaconSocket.write(juce::String(formatIp(target.ip)), target.port,
                                             beacon.data(), static_cast<int>(beacon.size()));

        if (sent < 0 && !std::exchange(target.unreachable, true))
            err << "cannot send a beacon to " << target.name << "; retrying\n";
    }
}

void ConsoleMaster::release()
{
    board.release(now());

    if (const auto count = board.countReleasing(); count > 0)
        err << "giving back " << count << (count == 1 ? " node" : " nodes") << ", waiting up to "
            << (board.releaseTimeoutMs() + 999) / 1000 << " s; Ctrl-C again ends at once\n";
}

void ConsoleMaster::carryOut()
{
    for (const auto& request : board.takeRequests())
    {
        const auto found = connectionOfNode.find(request.node);

        if (found == connectionOfNode.end())
            continue;

        const bool inOtherName = options.actAs && request.type == MasterMessageType::STOP_REQUEST;
        const auto& self = inOtherName ? *options.actAs : board.getNodes()[request.node].self;

        // A failed send needs no handling: the board is told of the loss, or times out.
        listeners[found->second.listener]->send(found->second.number, message(request.type, self));
    }

    showEvents();
}

void ConsoleMaster::reportUnansweredBroadcast()
{
    if (!options.broadcast || std::exchange(broadcastChecked, true))
        return;

    const auto& nodes = board.getNodes();
    const auto hasAnswered = [](const Node& node) { return node.state.has_value(); };
    const auto others = nodes.begin() + static_cast<std::ptrdiff_t>(options.nodes.size());

    if (std::none_of(others, nodes.end(), hasAnswered))
        err << (std::any_of(nodes.begin(), others, hasAnswered) ? "no other node" : "nobody")
            << " has answered the broadcast to " << formatNode(*options.broadcast) << "\n";
}

void ConsoleMaster::showEvents()
{
    for (const auto& event : board.takeEvents())
        display.showEvent(board.getNodes()[event.node], event.kind, now());

    display.showOutdatedTable(board.getNodes(), now());
}

void ConsoleMaster::showListening()
{
    std::set<MasterAddress> addresses;

    for (const auto& target : targets)
        addresses.insert(target.self);

    display.showListening(addresses);
}

bool ConsoleMaster::isFinished() const
{
    // Any number of nodes may answer a broadcast, so such a scan lasts for the whole timeout. A
    // watch ends only on request.
    const bool collecting = options.command == Command::scan && options.broadcast && !released &&
                            now() - startedAt < options.timeoutMs;
    const bool watching = options.command == Command::watch && !released;
    return board.isDone() && !collecting && !watching;
}

int ConsoleMaster::exitStatus() const
{
    const bool foundNothing = options.command == Command::scan && board.getNodes().empty();
    return board.isAsAsked() && !foundNothing ? exitAsAsked : exitNotAsAsked;
}

MasterDaemonMessage ConsoleMaster::message(MasterMessageType type, const MasterAddress& self) const
{
    MasterDaemonMessage message;
    message.type = type;
    message.masterAddress = self;
    message.masterText = options.text;
    return message;
}

} // namespace quelta
