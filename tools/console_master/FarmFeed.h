// Passes what the console master sees on to the farm view's server. Not thread-safe: the thread
// that calls ConsoleMaster::run() uses it.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <map>

#include "console_master/NodeBoard.h"
#include "farm_view/FarmServer.h"

namespace quelta {

class FarmFeed
{
public:
    /** Begins to serve. Returns false after reporting an error. */
    bool open(const MasterAddress& address, std::ostream& err);

    /** The address that it serves at. */
    MasterAddress getAddress() const { return server.getAddress(); }

    /** Takes the present state of a node. */
    void showNode(const Node& node);

    void showEvent(const Node& node, NodeEvent event);
    void removeNode(const Node& node);
    void setExpectedNodes(size_t count) { server.setExpectedNodes(count); }

    /** Measures a scan, from its request to its answer. */
    void scanSent(const Node& node);
    void scanAnswered(const Node& node);

private:
    using Clock = std::chrono::steady_clock;

    farmview::FarmServer server;
    std::map<std::string, Clock::time_point> scans;
};

} // namespace quelta
