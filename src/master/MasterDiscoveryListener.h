// Receives the addresses of the masters that discovery hears.
#pragma once

#include "messages/MasterAddress.h"

namespace quelta {

class MasterDiscoveryListener
{
public:
    /** Called for every beacon, the first and all later ones, on the discovery thread. Must return
        once that thread has been asked to exit. */
    virtual void masterDetected(const MasterAddress& address) = 0;

protected:
    ~MasterDiscoveryListener() = default;
};

} // namespace quelta
