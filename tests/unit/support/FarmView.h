// Values for the tests of the farm view.
#pragma once

#include <optional>
#include <string>

#include "farm_view/NodeStatus.h"
#include "farm_view/Time.h"

namespace quelta::farmview {

/** 2026-11-20T23:15:16.702Z. */
inline Time sampleTime()
{
    return Time(std::chrono::milliseconds(1795216516702));
}

inline Owner makeOwner(uint16_t port, const std::string& text = "render")
{
    return {{0x0A000002, port}, text};
}

/** A node that answers, with alias "demo", two GPUs and version 4000000. */
inline NodeStatus makeStatus(const std::string& name, NodeState state,
                             const std::optional<Owner>& owner = std::nullopt)
{
    return {name, state, Slave{"demo", 2, 4000000}, owner};
}

inline NodeStatus freeNode(const std::string& name = "a:1")
{
    return makeStatus(name, NodeState::free);
}

inline NodeStatus ownedNode(uint16_t port = 21000, const std::string& name = "a:1")
{
    return makeStatus(name, NodeState::owned, makeOwner(port));
}

inline NodeStatus lostNode(const std::optional<Owner>& owner = std::nullopt)
{
    return makeStatus("a:1", NodeState::disconnected, owner);
}

} // namespace quelta::farmview
