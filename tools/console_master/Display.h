// Prints a command's result and events on standard output, in the form that the options ask for.
// Not thread-safe.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <set>
#include <string>
#include <vector>

#include "console_master/NodeBoard.h"
#include "console_master/Options.h"

namespace quelta {

class Display
{
public:
    /** Both arguments must outlive the display. */
    Display(const Options& givenOptions, std::ostream& output);

    /** Prints the addresses at which this master listens, for commands that print events. */
    void showListening(const std::set<MasterAddress>& addresses);

    /** Prints the address at which the page is served. */
    void showServing(const MasterAddress& address);

    /** Prints an event, for commands that print events. */
    void showEvent(const Node& node, NodeEvent event, uint32_t now);

    /** Prints the table of a watch if there have been events since the last one, but none for a
        short time: events come in bursts. */
    void showOutdatedTable(const std::vector<Node>& nodes, uint32_t now);

    /** Prints the result of a scan. */
    void showResult(const std::vector<Node>& nodes);

private:
    void showLine(const std::string& line);

    const Options& options;
    std::ostream& out;
    uint32_t lastEventAt = 0;
    bool tableIsOutdated = false;
};

} // namespace quelta
