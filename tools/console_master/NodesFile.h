// The file of nodes: reads it, and decides when a changed one takes effect.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "console_master/HostList.h"

namespace quelta {

/** What reading the file has given. */
struct NodesFileReading
{
    std::string text;
    std::string error; ///< Why the file cannot be read; empty on success.

    bool operator==(const NodesFileReading&) const = default;
};

NodesFileReading readNodesFile(const std::string& name);

/** Appends the nodes of the file `name` to `nodes`. Returns an error message; empty on success. */
std::string addNodesOfFile(const std::string& name, const NodesFileReading& reading,
                           std::vector<NodeName>& nodes);

/** Decides which readings take effect: each that differs from the last one that did, once it has
    been the same twice in a row, because the file may be half-written. Not thread-safe. */
class NodesFileWatch
{
public:
    /** `givenReading` is in effect. */
    explicit NodesFileWatch(const NodesFileReading& givenReading)
        : effective(givenReading), latest(givenReading)
    {}

    /** Takes a new reading; returns whether it takes effect now. */
    bool take(const NodesFileReading& reading)
    {
        const bool isStable = reading == std::exchange(latest, reading);
        return isStable && reading != std::exchange(effective, isStable ? reading : effective);
    }

private:
    NodesFileReading effective;
    NodesFileReading latest;
};

} // namespace quelta
