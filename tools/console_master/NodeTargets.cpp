#include "console_master/NodeTargets.h"

#include <algorithm>
#include <ostream>

#include "console_master/platform/HostLookup.h"

namespace quelta {

namespace {

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

MachineKey Target::getKey() const
{
    return {listener, machineOf(ip)};
}

NodeTargets::NodeTargets(const Options& givenOptions, Inbox& eventInbox, std::ostream& errors)
    : options(givenOptions), inbox(eventInbox), err(errors)
{}

bool NodeTargets::open()
{
    warnOfForeignAddress();
    std::vector<Target> targets;

    for (const auto& node : options.nodes)
    {
        auto target = find(node);

        if (!target)
            return false;

        targets.push_back(*target);
    }

    if (options.broadcast)
    {
        broadcast = find(*options.broadcast);

        if (!broadcast)
            return false;

        // Nodes that are found by broadcast connect to the first listener.
        broadcast->listener = 0;
        targets.push_back(*broadcast);
    }

    if (!openListeners(targets))
        return false;

    if (broadcast)
    {
        broadcast = targets.back();
        targets.pop_back();
    }

    nodes = std::move(targets);
    return true;
}

void NodeTargets::warnOfForeignAddress()
{
    if (options.address && !isThisMachine(*options.address))
        err << "warning: " << formatIp(*options.address)
            << " is not an address of this machine; nodes that connect to it may reach another "
               "one\n";
}

std::optional<Target> NodeTargets::find(const NodeName& node)
{
    const auto ip = lookUpHost(node.host);

    if (!ip)
    {
        err << "unknown host \"" << node.host << "\"\n";
        return std::nullopt;
    }

    const auto announced = options.address ? options.address : localAddressTowards(*ip);

    if (!announced)
    {
        err << "no route to " << node.host << "; give this machine's address with --address\n";
        return std::nullopt;
    }

    return Target{formatNode(node), *ip,  node.port, chooseListener(machineOf(*ip), *announced),
                  {*announced, 0},  false};
}

size_t NodeTargets::chooseListener(uint32_t machine, uint32_t announced)
{
    auto& listener = unusedListener[machine];

    // A node that was found by broadcast may already use the first listener.
    if (broadcast)
        listener = std::max<size_t>(listener, 1);

    while (listener < listeners.size() && listeners[listener].ip != 0 &&
           listeners[listener].ip != announced)
        ++listener;

    return listener++;
}

bool NodeTargets::openListeners(std::vector<Target>& targets)
{
    size_t count = listeners.size();

    for (const auto& target : targets)
        count = std::max(count, target.listener + 1);

    while (listeners.size() < count)
    {
        std::vector<const Target*> users;

        for (const auto& target : targets)
            if (target.listener == listeners.size())
                users.push_back(&target);

        if (!openListener(users))
            return false;
    }

    for (auto& target : targets)
        target.self.port = listeners[target.listener].socket->getPort();

    return true;
}

bool NodeTargets::openListener(const std::vector<const Target*>& users)
{
    // A master that announces a loopback address must not be reachable from other machines.
    const bool isPrivate =
        !users.empty() && std::all_of(users.begin(), users.end(), [](const Target* target) {
            return isLoopback(target->self.ip);
        });
    const uint32_t ip = isPrivate ? users.front()->self.ip : 0;
    const auto index = listeners.size();
    const auto port = options.listenPort == 0 ? 0 : options.listenPort + index;
    auto socket = std::make_unique<MasterListener>(index, inbox);

    if (port > 65535 || !socket->open(ip, static_cast<uint16_t>(port)))
    {
        err << "cannot listen on port " << port << " of "
            << (ip == 0 ? std::string("this machine") : formatIp(ip))
            << ": is another program using it? Try another --listen-port\n";
        return false;
    }

    listeners.push_back({ip, std::move(socket)});
    return true;
}

std::set<MasterAddress> NodeTargets::getAddresses() const
{
    std::set<MasterAddress> addresses;

    for (const auto& target : nodes)
        addresses.insert(target.self);

    if (broadcast)
        addresses.insert(broadcast->self);

    return addresses;
}

std::optional<TargetChanges> NodeTargets::replaceNodes(const std::vector<NodeName>& wanted)
{
    const auto before = unusedListener;
    std::map<std::string, Target> missing;
    std::vector<Target> kept;
    TargetChanges changes;

    for (const auto& target : nodes)
        missing[target.name] = target;

    for (const auto& node : wanted)
    {
        if (const auto same = missing.extract(formatNode(node)))
            kept.push_back(same.mapped());
        else if (const auto former = formerNodes.find(formatNode(node));
                 former != formerNodes.end())
            changes.added.push_back(former->second);
        else if (const auto found = find(node))
            changes.added.push_back(*found);
        else
        {
            unusedListener = before;
            return std::nullopt;
        }
    }

    if (!openListeners(changes.added))
        return std::nullopt;

    for (const auto& [name, target] : missing)
    {
        changes.removed.push_back(target);
        formerNodes[name] = target;
    }

    nodes = std::move(kept);
    nodes.insert(nodes.end(), changes.added.begin(), changes.added.end());
    return changes;
}

void NodeTargets::sendBeacons(const std::string& text)
{
    for (auto& target : nodes)
        sendBeacon(target, text);

    if (broadcast)
        sendBeacon(*broadcast, text);
}

void NodeTargets::sendBeacon(Target& target, const std::string& text)
{
    MasterDaemonMessage message;
    message.type = MasterMessageType::SCAN_REQUEST;
    message.masterAddress = target.self;
    message.masterText = text;
    const auto beacon = encodeMasterMessage(message);
    const auto sent = beaconSocket.write(juce::String(formatIp(target.ip)), target.port,
                                         beacon.data(), static_cast<int>(beacon.size()));

    if (sent < 0 && !std::exchange(target.unreachable, true))
        err << "cannot send a beacon to " << target.name << "; retrying\n";
}

void NodeTargets::send(const ConnectionId& connection, const MasterDaemonMessage& message)
{
    listeners[connection.listener].socket->send(connection.number, message);
}

MachineKey NodeTargets::keyOf(const PeerEvent& event)
{
    return {event.connection.listener, machineOf(event.peerIp)};
}

} // namespace quelta
