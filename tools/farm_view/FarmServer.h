// The farm view's HTTP server: one thread owns the model and serves all connections.
//
// The thread that owns the server calls all functions. Except for open() and the destructor they
// only pass what they are given to the server's thread, so there is no lock. Viewers receive
// updates in the order of the calls.
//
// HttpLimits, RequestLimiter and maxHeaderSize limit what clients can use up. Clients beyond a
// limit are refused or dropped.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "farm_view/HttpLimits.h"
#include "farm_view/NodeStatus.h"
#include "farm_view/RoundTripHistogram.h"
#include "messages/MasterAddress.h"

namespace quelta::farmview {

class FarmServer final
{
public:
    explicit FarmServer(const HttpLimits& limits = {});

    /** Closes all connections and ends the thread. */
    ~FarmServer();

    /** Begins to serve at `address` (port 0: any free port). Call it once. Returns the reason if
        the address is not available; empty on success. */
    std::string open(const MasterAddress& address);

    /** The address that it serves at, once it is open. */
    MasterAddress getAddress() const;

    /** Takes the status of a node, known or new. */
    void update(const NodeStatus& status);

    /** Sends a line of JSON to viewers as an event of the list of events. */
    void showEvent(const std::string& json);

    void addRoundTrip(const std::string& node, RoundTripHistogram::Duration duration);
    void remove(const std::string& node);
    void setExpectedNodes(size_t count);

private:
    class Service;

    std::unique_ptr<Service> service;
};

} // namespace quelta::farmview
