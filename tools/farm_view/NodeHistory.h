// The changes of one node's state and owner, oldest first, in bounded memory: those of the last 24
// hours, but at most 1,024 of 56 bytes each, which is 56 KiB a node. No clock: the caller says what
// time it is. Not thread-safe.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>

#include "farm_view/NodeStatus.h"
#include "farm_view/Time.h"

namespace quelta::farmview {

/** A state that began at `time`. */
class Change
{
public:
    Change(Time givenTime, NodeState givenState, const std::optional<Owner>& owner);

    Time getTime() const { return time; }
    NodeState getState() const { return state; }
    std::optional<Owner> getOwner() const;

private:
    static constexpr size_t textSize = 32;

    Time time;
    MasterAddress address; ///< Port 0 without an owner.
    NodeState state;
    uint8_t textLength = 0;
    std::array<char, textSize> text{};
};

class NodeHistory
{
public:
    static constexpr std::chrono::hours span{24};
    static constexpr size_t maxChanges = 1024;

    /** Appends a change and drops what has become too old or too much. */
    void add(const Change& change);

    /** Drops the changes that no longer tell anything about the last 24 hours. The latest change
        before that stays: it is the state at the beginning of the span. */
    void expire(Time now);

    const std::deque<Change>& getChanges() const { return changes; }

private:
    std::deque<Change> changes;
};

} // namespace quelta::farmview
