#include "farm_view/FarmModel.h"

#include <utility>

namespace quelta::farmview {

namespace {

bool haveSameOwner(const NodeStatus& a, const NodeStatus& b)
{
    return a.owner.has_value() == b.owner.has_value() &&
           (!a.owner || a.owner->address == b.owner->address);
}

void count(NodeRecord& record, const NodeStatus& next, Time now)
{
    const auto& last = record.status;
    auto& counters = record.counters;
    ++counters.changes;

    if (next.state == NodeState::disconnected && last.state != NodeState::disconnected)
        ++counters.lostConnections;

    if (last.state != NodeState::owned)
        return;

    if (next.state == NodeState::owned && !haveSameOwner(last, next))
        ++counters.steals;
    else if (next.state == NodeState::free && record.beginningSeen &&
             now - record.since < FarmModel::shortOwnership)
        ++counters.failures;
}

} // namespace

bool FarmModel::update(const NodeStatus& status, Time now)
{
    const auto found = nodes.find(status.name);

    if (found == nodes.end())
    {
        auto& record = nodes[status.name];
        record.status = status;
        record.since = record.lastChange = now;
        record.history.add({now, status.state, status.owner});
        return true;
    }

    auto& record = found->second;

    if (record.status == status)
        return false;

    count(record, status, now);
    const auto last = std::exchange(record.status, status);
    record.lastChange = now;

    if (last.state != status.state || !haveSameOwner(last, status))
    {
        record.since = now;
        record.beginningSeen = isAnswering(last.state);
    }

    if (last.state != status.state || last.owner != status.owner)
        record.history.add({now, status.state, status.owner});

    return true;
}

void FarmModel::addRoundTrip(const std::string& node, RoundTripHistogram::Duration duration)
{
    const auto found = nodes.find(node);

    if (found == nodes.end())
        return;

    found->second.roundTrip = duration;
    roundTrips.add(duration);
}

void FarmModel::expire(Time now)
{
    for (auto& [name, record] : nodes)
        record.history.expire(now);
}

} // namespace quelta::farmview
