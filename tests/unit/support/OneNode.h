// A node board with one node, "n:1", for tests of the board's decisions and of its output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "console_master/NodeBoard.h"

namespace quelta::test {

class OneNode
{
public:
    using Type = MasterMessageType;

    static constexpr MasterAddress self{0x7F000001, 21000}; ///< The console master.
    static constexpr MasterAddress other{0x0A000005, 21001};
    static constexpr MasterAddress nobody{};
    static constexpr uint32_t timeoutMs = 5000;

    explicit OneNode(Command command) : board(command, timeoutMs) { board.addNode("n:1", self, 0); }

    /** A node that the command hold has started for the console master. */
    static OneNode held()
    {
        OneNode node(Command::hold);
        node.connect();
        node.receive(Type::DAEMON_STATUS, nobody);
        node.receive(Type::START_REPLY, self);
        node.receive(Type::SLAVE_RUNNING, self);
        node.sent();
        node.told();
        return node;
    }

    static MasterDaemonMessage record(Type type, const MasterAddress& owner)
    {
        MasterDaemonMessage message;
        message.type = type;
        message.masterAddress = owner;
        message.masterText = owner == nobody ? "" : "rig";
        message.slaveAlias = "node7";
        message.numGpus = 2;
        message.slaveVersion = 4000001;
        return message;
    }

    void connect(uint32_t now = 0) { board.connected(0, now); }

    void receive(Type type, const MasterAddress& owner, uint32_t now = 0)
    {
        board.received(0, record(type, owner), now);
    }

    /** The types of the requests since the last call. */
    std::vector<Type> sent()
    {
        std::vector<Type> types;

        for (const auto& request : board.takeRequests())
            types.push_back(request.type);

        return types;
    }

    /** The events since the last call. */
    std::vector<NodeEvent> told()
    {
        std::vector<NodeEvent> kinds;

        for (const auto& event : board.takeEvents())
            kinds.push_back(event.kind);

        return kinds;
    }

    const Node& node() const { return board.getNodes()[0]; }

    NodeBoard board;
};

} // namespace quelta::test
