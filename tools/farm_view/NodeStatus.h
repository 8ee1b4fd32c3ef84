// What the farm view knows of one node, as values. The words are those that --json prints.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "messages/MasterAddress.h"

namespace quelta::farmview {

/** The states that a master which only looks can see. A daemon tells nobody but the owner whether
    the slave is starting, running or has failed; `failed` is here because scans can report it. */
enum class NodeState : uint8_t
{
    waiting,
    noAnswer,
    free,
    owned,
    failed,
    silent,
    disconnected
};

inline constexpr std::array<std::string_view, 7> stateNames{
    "waiting", "no answer", "free", "owned", "failed", "silent", "disconnected"};

constexpr std::string_view nameOf(NodeState state)
{
    return stateNames[static_cast<size_t>(state)];
}

constexpr std::optional<NodeState> stateByName(std::string_view name)
{
    for (size_t i = 0; i < stateNames.size(); ++i)
        if (stateNames[i] == name)
            return static_cast<NodeState>(i);

    return std::nullopt;
}

/** Whether a node in this state answers scans. */
constexpr bool isAnswering(NodeState state)
{
    return state == NodeState::free || state == NodeState::owned || state == NodeState::failed;
}

struct Slave
{
    std::string alias;
    uint32_t gpus = 0;
    uint32_t version = 0;

    bool operator==(const Slave&) const = default;
};

struct Owner
{
    MasterAddress address;
    std::string text; ///< At most 32 bytes of valid UTF-8 without control characters.

    bool operator==(const Owner&) const = default;
};

struct NodeStatus
{
    std::string name;
    NodeState state = NodeState::waiting;
    std::optional<Slave> slave; ///< Empty until the node has answered.
    std::optional<Owner> owner;

    bool operator==(const NodeStatus&) const = default;
};

} // namespace quelta::farmview
