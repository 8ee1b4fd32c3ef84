// The console master's command line.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "console_master/HostList.h"
#include "console_master/NodesFile.h"
#include "messages/MasterAddress.h"

namespace quelta {

enum class Command
{
    scan,
    watch,
    hold,
    steal,
    stop,
    serve
};

/** The exit statuses of the program. */
enum ExitStatus : int
{
    exitAsAsked = 0,
    exitNotAsAsked = 1,
    exitUsage = 2,
    exitLocalFailure = 3
};

struct Options
{
    Command command = Command::scan;
    std::vector<NodeName> nodes; ///< Those of the command line, then those of the file.
    size_t numNodesOfCommandLine = 0;
    std::string nodesFile; ///< Empty without one.
    NodesFileReading nodesFileReading;
    std::optional<NodeName> broadcast;  ///< Another destination of beacons.
    std::optional<uint32_t> address;    ///< Announced to nodes; default: chosen by the route.
    std::optional<MasterAddress> actAs; ///< Sender of stop requests; default: this master.
    uint16_t listenPort = 0;            ///< 0 for any free port.
    uint32_t timeoutMs = 5000;
    std::string text; ///< This master's text, which nodes report as the owner's.
    bool json = false;
    MasterAddress httpAddress{0x7F000001, 8080}; ///< Port 0 for any free port.
};

/** Parses the command line, which begins with the program's name, into `options`. Returns the exit
    status if the program must end at once, after printing help or an error; otherwise nothing. */
std::optional<int> parseOptions(const std::vector<std::string>& arguments, Options& options,
                                std::ostream& out, std::ostream& err);

} // namespace quelta
