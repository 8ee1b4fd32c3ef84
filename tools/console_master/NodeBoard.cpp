#include "console_master/NodeBoard.h"

#include <algorithm>

namespace quelta {

namespace {

using Type = MasterMessageType;

bool isStateMessage(Type type)
{
    return type == Type::DAEMON_STATUS || type == Type::SLAVE_FAILED;
}

bool isSentByDaemons(Type type)
{
    return isStateMessage(type) || type == Type::START_REPLY || type == Type::STOP_REPLY ||
           type == Type::SLAVE_RUNNING || type == Type::STEAL_REPLY;
}

bool haveSameContent(const MasterDaemonMessage& a, const MasterDaemonMessage& b)
{
    return a.masterAddress == b.masterAddress && a.masterText == b.masterText &&
           a.slaveAlias == b.slaveAlias && a.numGpus == b.numGpus &&
           a.slaveVersion == b.slaveVersion;
}

Type requestFor(Command command)
{
    return command == Command::hold    ? Type::START_REQUEST
           : command == Command::steal ? Type::STEAL_REQUEST
                                       : Type::STOP_REQUEST;
}

Type replyFor(Command command)
{
    return command == Command::hold    ? Type::START_REPLY
           : command == Command::steal ? Type::STEAL_REPLY
                                       : Type::STOP_REPLY;
}

/** Records what a node has sent; returns whether it differs from what was known. */
bool takeState(Node& node, const MasterDaemonMessage& message)
{
    const bool isNews =
        std::exchange(node.silent, false) || !node.state || !haveSameContent(*node.state, message);
    node.state = message;

    if (isStateMessage(message.type))
    {
        node.scanPending = false;
        node.slaveFailed = message.type == Type::SLAVE_FAILED;
    }

    return isNews;
}

} // namespace

NodeBoard::NodeBoard(Command givenCommand, uint32_t givenTimeoutMs)
    : command(givenCommand), timeoutMs(givenTimeoutMs)
{}

size_t NodeBoard::addNode(const std::string& name, const MasterAddress& self, uint32_t now)
{
    Node node;
    node.name = name;
    node.self = self;
    node.since = now;
    nodes.push_back(node);
    return nodes.size() - 1;
}

void NodeBoard::connected(size_t index, uint32_t now)
{
    auto& node = nodes[index];

    // The earlier connection was lost without notice, for instance because the node crashed.
    if (node.connected)
        disconnected(index, now);

    node.connected = true;
    node.since = now;

    switch (node.phase)
    {
        case NodePhase::asked:
            node.phase = NodePhase::waiting;
            scan(index, now);
            break;
        case NodePhase::waiting:
        case NodePhase::starting:
        case NodePhase::running:
        case NodePhase::watching:
            scan(index, now);
            break;
        case NodePhase::releasing:
            request(index, Type::STOP_REQUEST);
            break;
        case NodePhase::ended:
            break;
    }
}

void NodeBoard::disconnected(size_t index, uint32_t now)
{
    auto& node = nodes[index];
    node.connected = false;
    node.scanPending = false;
    node.since = now;

    if (node.phase == NodePhase::ended)
        return;

    node.away = true;
    report(index, NodeEvent::disconnected);
}

void NodeBoard::received(size_t index, const MasterDaemonMessage& message, uint32_t now)
{
    if (!isSentByDaemons(message.type))
        return receivedJunk(index);

    auto& node = nodes[index];
    const auto presence = std::exchange(node.away, false) ? Presence::back : Presence::stayed;
    const bool isNews = takeState(node, message);

    switch (node.phase)
    {
        case NodePhase::waiting:
            if (isStateMessage(message.type))
                begin(index, now);
            break;
        case NodePhase::asked:
            if (message.type == replyFor(command))
                settle(index, now);
            break;
        case NodePhase::starting:
        case NodePhase::running:
            checkHeld(index, message.type, presence, now);
            break;
        case NodePhase::watching:
            if (presence == Presence::back)
                report(index, NodeEvent::found);
            else if (isNews)
                report(index, NodeEvent::changed);
            break;
        case NodePhase::releasing:
            if (message.type == Type::STOP_REPLY)
                end(index, node.isOwned() ? NodeEvent::stolen : NodeEvent::stopped,
                    node.isOwned() ? Outcome::notAsAsked : Outcome::asAsked);
            break;
        case NodePhase::ended:
            break;
    }
}

void NodeBoard::receivedJunk(size_t index)
{
    report(index, NodeEvent::invalidRecord);
}

void NodeBoard::begin(size_t index, uint32_t now)
{
    if (command == Command::scan)
        return end(index, NodeEvent::found, Outcome::asAsked);

    report(index, NodeEvent::found);

    if (isWatch())
        return enter(index, NodePhase::watching, now);

    enter(index, NodePhase::asked, now);
    request(index, requestFor(command));
}

void NodeBoard::settle(size_t index, uint32_t now)
{
    const auto& node = nodes[index];

    if (command == Command::stop)
        return end(index, node.isOwned() ? NodeEvent::refused : NodeEvent::stopped,
                   node.isOwned() ? Outcome::notAsAsked : Outcome::asAsked);

    if (!node.isOurs())
        return end(index, NodeEvent::refused, Outcome::notAsAsked);

    enter(index, NodePhase::starting, now);
    report(index, NodeEvent::starting);
}

void NodeBoard::checkHeld(size_t index, MasterMessageType type, Presence presence, uint32_t now)
{
    auto& node = nodes[index];

    if (!node.isOurs())
        return end(index, node.isOwned() ? NodeEvent::stolen : NodeEvent::lost,
                   Outcome::notAsAsked);

    if (presence == Presence::back)
        report(index, NodeEvent::found);

    if (type == Type::SLAVE_RUNNING && node.phase == NodePhase::starting)
    {
        enter(index, NodePhase::running, now);
        report(index, NodeEvent::running);
    }
    else if (type == Type::SLAVE_FAILED)
    {
        node.asAsked = false;
        report(index, NodeEvent::failed);
        releaseNode(index, now);
    }
}

void NodeBoard::tick(uint32_t now)
{
    for (size_t i = 0; i < nodes.size(); ++i)
        tickNode(i, now);
}

void NodeBoard::tickNode(size_t index, uint32_t now)
{
    auto& node = nodes[index];
    const auto passed = now - node.since;

    switch (node.phase)
    {
        case NodePhase::waiting:
            if (passed < timeoutMs)
                break;

            if (!isWatch())
                end(index, NodeEvent::noAnswer, Outcome::notAsAsked);
            else if (!std::exchange(node.silent, true))
                report(index, NodeEvent::noAnswer);
            break;
        case NodePhase::asked:
            if (passed >= replyTimeoutMs(node))
                end(index, NodeEvent::noAnswer, Outcome::notAsAsked);
            break;
        case NodePhase::releasing:
            if (passed >= replyTimeoutMs(node) || now - node.releasedAt >= releaseTimeoutMs())
                end(index, NodeEvent::noAnswer, Outcome::notAsAsked);
            break;
        case NodePhase::starting:
        case NodePhase::running:
            if (!node.connected && passed >= timeoutMs)
                end(index, NodeEvent::lost, Outcome::notAsAsked);
            else
                keepScanning(index, now);
            break;
        case NodePhase::watching:
            keepScanning(index, now);
            break;
        case NodePhase::ended:
            break;
    }
}

void NodeBoard::keepScanning(size_t index, uint32_t now)
{
    auto& node = nodes[index];
    const auto passed = now - node.scannedAt;

    if (!node.connected)
        return;

    // One scan at a time: if the daemon stopped reading, unlimited requests would fill the
    // connection's buffers and block a send.
    if (!node.scanPending && passed >= scanIntervalMs)
        scan(index, now);
    else if (node.scanPending && passed >= timeoutMs && !std::exchange(node.silent, true))
        report(index, NodeEvent::silent);
}

void NodeBoard::removeNode(size_t index)
{
    nodes[index].phase = NodePhase::ended;
}

void NodeBoard::restoreNode(size_t index, uint32_t now)
{
    auto& node = nodes[index];
    node.state.reset();
    node.silent = node.away = false;
    enter(index, NodePhase::waiting, now);

    if (node.connected)
        scan(index, now);
}

void NodeBoard::release(uint32_t now)
{
    for (size_t i = 0; i < nodes.size(); ++i)
    {
        const auto phase = nodes[i].phase;

        if (phase == NodePhase::starting || phase == NodePhase::running ||
            (phase == NodePhase::asked && command != Command::stop))
            releaseNode(i, now);
        else if (isWatch())
            nodes[i].phase = NodePhase::ended;
        else if (phase == NodePhase::waiting || phase == NodePhase::asked)
            end(i, NodeEvent::noAnswer, Outcome::notAsAsked);
    }
}

void NodeBoard::releaseNode(size_t index, uint32_t now)
{
    enter(index, NodePhase::releasing, now);
    nodes[index].releasedAt = now;

    if (nodes[index].connected)
        request(index, Type::STOP_REQUEST);
}

size_t NodeBoard::countReleasing() const
{
    return static_cast<size_t>(std::count_if(nodes.begin(), nodes.end(), [](const Node& node) {
        return node.phase == NodePhase::releasing;
    }));
}

bool NodeBoard::isDone() const
{
    return std::all_of(nodes.begin(), nodes.end(),
                       [](const Node& node) { return node.phase == NodePhase::ended; });
}

bool NodeBoard::isAsAsked() const
{
    return std::all_of(nodes.begin(), nodes.end(), [](const Node& node) { return node.asAsked; });
}

void NodeBoard::enter(size_t index, NodePhase phase, uint32_t now)
{
    nodes[index].phase = phase;
    nodes[index].since = now;
}

void NodeBoard::end(size_t index, NodeEvent event, Outcome outcome)
{
    nodes[index].phase = NodePhase::ended;
    nodes[index].asAsked = nodes[index].asAsked && outcome == Outcome::asAsked;
    report(index, event);
}

void NodeBoard::scan(size_t index, uint32_t now)
{
    nodes[index].scannedAt = now;
    nodes[index].scanPending = true;
    request(index, Type::SCAN_REQUEST);
}

uint32_t NodeBoard::replyTimeoutMs(const Node& node) const
{
    const bool stopsSlave = node.phase == NodePhase::releasing || command != Command::hold;
    return node.connected && stopsSlave ? releaseTimeoutMs() : timeoutMs;
}

} // namespace quelta
