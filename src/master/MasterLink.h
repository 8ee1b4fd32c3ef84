// The interface through which the registry uses a connection to a master; tests implement their
// own.
//
// Every call is made under the DaemonNetworkThread's lock.
#pragma once

#include <cstdint>

#include "messages/MasterDaemonMessage.h"

namespace quelta {

class MasterLink
{
public:
    virtual ~MasterLink() = default;

    virtual const MasterAddress& getAddress() const = 0;

    /** Whether it is connected, its reader is alive and no send has failed. */
    virtual bool isUsable() const = 0;

    /** Closes an earlier connection, then connects. Returns false on failure, after 1000 ms at the
        latest. */
    virtual bool connectToMaster() = 0;

    /** Marks the connection as unusable if its reader thread is dead. `now` is in milliseconds. To
        be called at every tick. */
    virtual void markIfDeaf(uint32_t now) = 0;

    /** Sends one record. A failure makes the link unusable. */
    virtual void send(const MasterDaemonMessage::Bytes& record) = 0;
};

} // namespace quelta
