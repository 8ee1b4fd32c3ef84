#include "console_master/ConsoleMaster.h"

#include <algorithm>
#include <ostream>
#include <utility>

namespace quelta {

namespace {

constexpr uint32_t beaconIntervalMs = 500;
constexpr uint32_t rereadIntervalMs = 500;
constexpr std::chrono::milliseconds tickInterval{50};

uint32_t now()
{
    return juce::Time::getMillisecondCounter();
}

} // namespace

ConsoleMaster::ConsoleMaster(const Options& givenOptions, std::ostream& output,
                             std::ostream& errors, const StopRequest& givenStopRequest)
    : options(givenOptions),
      out(output),
      err(errors),
      stopRequest(givenStopRequest),
      board(givenOptions.command, givenOptions.timeoutMs),
      display(givenOptions, output),
      targets(givenOptions, inbox, errors),
      nodesFileWatch(givenOptions.nodesFileReading)
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

        rereadNodes();
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
    if (!targets.open())
        return false;

    if (options.command == Command::serve)
        feed = std::make_unique<FarmFeed>();

    startedAt = nodesReadAt = now();
    beaconsSentAt = startedAt - beaconIntervalMs;

    for (const auto& target : targets.getNodes())
        addNode(target);

    // With the nodes in place, so that no viewer sees an empty farm.
    if (feed && !serve())
        return false;

    display.showListening(targets.getAddresses());
    return true;
}

bool ConsoleMaster::serve()
{
    feed->setExpectedNodes(options.nodes.size());

    if (!feed->open(options.httpAddress, err))
        return false;

    display.showServing(feed->getAddress());
    return true;
}

void ConsoleMaster::addNode(const Target& target)
{
    const auto& nodes = board.getNodes();
    const auto known = std::find_if(nodes.begin(), nodes.end(), [&target](const Node& node) {
        return node.name == target.name;
    });
    const auto node = known == nodes.end() ? board.addNode(target.name, target.self, now())
                                           : static_cast<size_t>(known - nodes.begin());

    if (board.getNodes()[node].phase == NodePhase::ended)
        board.restoreNode(node, now());

    nodeOfMachine[target.getKey()] = node;

    if (feed)
        feed->showNode(board.getNodes()[node]);
}

/** Reads the file of nodes again if it is time. */
void ConsoleMaster::rereadNodes()
{
    if (!feed || options.nodesFile.empty() || now() - nodesReadAt < rereadIntervalMs)
        return;

    nodesReadAt = now();
    const auto reading = readNodesFile(options.nodesFile);

    if (!nodesFileWatch.take(reading))
        return;

    const auto end =
        options.nodes.begin() + static_cast<std::ptrdiff_t>(options.numNodesOfCommandLine);
    std::vector<NodeName> nodes(options.nodes.begin(), end);

    if (const auto error = addNodesOfFile(options.nodesFile, reading, nodes); !error.empty())
        err << error << "; keeping the earlier nodes\n";
    else
        applyNodes(nodes);
}

void ConsoleMaster::applyNodes(const std::vector<NodeName>& nodes)
{
    const auto changes = targets.replaceNodes(nodes);

    if (!changes)
    {
        err << options.nodesFile << ": keeping the earlier nodes\n";
        return;
    }

    for (const auto& target : changes->removed)
    {
        const auto node = nodeOfMachine.at(target.getKey());
        board.removeNode(node);
        feed->removeNode(board.getNodes()[node]);
    }

    for (const auto& target : changes->added)
        addNode(target);

    feed->setExpectedNodes(nodes.size());
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
        received(node, event.message);
    else if (event.kind == PeerEvent::Kind::junk)
        board.receivedJunk(node);
    else
    {
        nodeOfConnection.erase(found);
        connectionOfNode.erase(node);
        board.disconnected(node, now());
    }
}

void ConsoleMaster::received(size_t node, const MasterDaemonMessage& message)
{
    const bool wasScanned = board.getNodes()[node].scanPending;
    board.received(node, message, now());

    if (feed && wasScanned && !board.getNodes()[node].scanPending)
        feed->scanAnswered(board.getNodes()[node]);
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
    const auto machine = NodeTargets::keyOf(event);

    if (const auto found = nodeOfMachine.find(machine); found != nodeOfMachine.end())
        return found->second;

    if (!options.broadcast || event.connection.listener != 0)
        return std::nullopt;

    const auto name = formatNode({formatIp(event.peerIp), options.broadcast->port});
    return nodeOfMachine[machine] = board.addNode(name, targets.getBroadcast()->self, now());
}

void ConsoleMaster::sendBeacons()
{
    if (now() - beaconsSentAt < beaconIntervalMs)
        return;

    beaconsSentAt = now();

    targets.sendBeacons(options.text);
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
        targets.send(found->second, message(request.type, self));

        if (feed && request.type == MasterMessageType::SCAN_REQUEST)
            feed->scanSent(board.getNodes()[request.node]);
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
    {
        const auto& node = board.getNodes()[event.node];
        display.showEvent(node, event.kind, now());

        // A node that has been removed may still send junk.
        if (!feed || node.phase == NodePhase::ended)
            continue;

        feed->showNode(node);
        feed->showEvent(node, event.kind);
    }

    display.showOutdatedTable(board.getNodes(), now());
}

bool ConsoleMaster::isFinished() const
{
    // Any number of nodes may answer a broadcast, so such a scan lasts for the whole timeout. A
    // watch ends only on request.
    const bool collecting = options.command == Command::scan && options.broadcast && !released &&
                            now() - startedAt < options.timeoutMs;
    const bool watching =
        (options.command == Command::watch || options.command == Command::serve) && !released;
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
