// Everything that the farm view knows: the latest status of each node, since when, its history and
// its counters. No clock, no sockets, no threads: the caller says what happened and when. Not
// thread-safe.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "farm_view/NodeHistory.h"
#include "farm_view/NodeStatus.h"
#include "farm_view/RoundTripHistogram.h"
#include "farm_view/Time.h"

namespace quelta::farmview {

/** Counted since the farm view knows the node. */
struct NodeCounters
{
    uint64_t changes = 0; ///< Of any field.

    /** Ownerships that ended within 30 s: the trace that a failing slave leaves, because daemons
        report a failure to the owner only, which then gives the node back. */
    uint64_t failures = 0;

    uint64_t steals = 0;          ///< From one owner directly to another.
    uint64_t lostConnections = 0; ///< Of the daemon to this program.
};

struct NodeRecord
{
    NodeStatus status;
    Time since;      ///< When the present state, or the present owner's ownership, began.
    Time lastChange; ///< Of any field.
    bool beginningSeen = false; ///< Whether `since` is the time of an observed change.
    std::optional<RoundTripHistogram::Duration> roundTrip; ///< Of the latest scan.
    NodeCounters counters;
    NodeHistory history;
};

class FarmModel
{
public:
    /** An ownership that ends sooner is counted as a failure. A slave that never becomes ready is
        stopped by its daemon within that time. */
    static constexpr std::chrono::seconds shortOwnership{30};

    /** `givenStart` is when the view began. */
    explicit FarmModel(Time givenStart) : start(givenStart) {}

    /** Takes the status of a node, known or new. Returns whether it differs from the last one. */
    bool update(const NodeStatus& status, Time now);

    /** Takes the duration of a scan. Ignores unknown nodes. */
    void addRoundTrip(const std::string& node, RoundTripHistogram::Duration duration);

    /** Forgets a node. Returns false if it is unknown. */
    bool remove(const std::string& node) { return nodes.erase(node) > 0; }

    /** The number of nodes that the operator has named. */
    void setExpectedNodes(size_t count) { expectedNodes = count; }
    size_t getExpectedNodes() const { return expectedNodes; }

    const std::map<std::string, NodeRecord>& getNodes() const { return nodes; }
    const RoundTripHistogram& getRoundTrips() const { return roundTrips; }

    /** How far back histories go. */
    Time historyBegin(Time now) const { return std::max(start, now - NodeHistory::span); }

    /** Drops what is too old to be shown. */
    void expire(Time now);

private:
    const Time start;
    size_t expectedNodes = 0;
    std::map<std::string, NodeRecord> nodes;
    RoundTripHistogram roundTrips;
};

} // namespace quelta::farmview
