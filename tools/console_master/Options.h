// What the operator asks for on the command line.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "console_master/HostList.h"
#include "messages/MasterAddress.h"

namespace quelta {

enum class Command
{
    scan,
    watch,
    hold,
    steal,
    stop
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
    std::vector<NodeName> nodes;
    std::optional<NodeName> broadcast; ///< Where a beacon reaches nodes that nobody named.
    std::optional<uint32_t> address;   ///< Announced instead of the address on the way to the node.
    std::optional<MasterAddress> actAs; ///< Written into stop requests instead of the own address.
    uint16_t listenPort = 0;            ///< 0 for any free one.
    uint32_t timeoutMs = 5000;
    std::string text; ///< What the master tells about itself.
    bool json = false;
};

/** Reads the command line, which begins with the program's name. Gives the exit status if the
    program is to end at once (help and errors have been written then), otherwise nothing and
    `options` is filled. */
std::optional<int> parseOptions(const std::vector<std::string>& arguments, Options& options,
                                std::ostream& out, std::ostream& err);

} // namespace quelta
