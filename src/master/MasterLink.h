// What the registry and the broadcasts need of a connection to a master; tests put their own in its
// place.
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

    /** Whether it is connected, is read from and has taken everything that was sent. */
    virtual bool isUsable() const = 0;

    /** Connects within 1000 ms; ends an earlier connection first. */
    virtual bool connectToMaster() = 0;

    /** Marks a connection whose reader thread is gone as unusable; `now` is in milliseconds. To be called at
     * every tick. */
    virtual void dropIfDeaf(uint32_t now) = 0;

    /** Sends one record. A failure makes the link unusable. */
    virtual void send(const MasterDaemonMessage::Bytes& record) = 0;
};

} // namespace quelta
