#include "console_master/FarmFeed.h"

#include <ostream>

#include "console_master/Report.h"
#include "farm_view/Time.h"

namespace quelta {

namespace {

std::string timeText()
{
    using namespace std::chrono;
    return farmview::formatTime(floor<milliseconds>(system_clock::now()));
}

farmview::NodeStatus describe(const Node& node)
{
    farmview::NodeStatus status;
    status.name = readableText(node.name);
    status.state =
        farmview::stateByName(stateName(node)).value_or(farmview::NodeState::disconnected);

    if (node.state)
        status.slave = {readableText(node.state->slaveAlias), node.state->numGpus,
                        node.state->slaveVersion};

    if (node.isOwned())
        status.owner = {node.state->masterAddress, readableText(node.state->masterText)};

    return status;
}

} // namespace

bool FarmFeed::open(const MasterAddress& address, std::ostream& err)
{
    const auto error = server.open(address);

    if (!error.empty())
        err << "cannot serve at " << formatAddress(address) << ": " << error
            << "; try another --http\n";

    return error.empty();
}

void FarmFeed::showNode(const Node& node)
{
    server.update(describe(node));
}

void FarmFeed::showEvent(const Node& node, NodeEvent event)
{
    server.showEvent(formatJsonEvent(node, event, timeText()));
}

void FarmFeed::removeNode(const Node& node)
{
    scans.erase(node.name);
    server.remove(readableText(node.name));
}

void FarmFeed::scanSent(const Node& node)
{
    scans[node.name] = Clock::now();
}

void FarmFeed::scanAnswered(const Node& node)
{
    if (const auto scan = scans.extract(node.name))
        server.addRoundTrip(
            readableText(node.name),
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - scan.mapped()));
}

} // namespace quelta
