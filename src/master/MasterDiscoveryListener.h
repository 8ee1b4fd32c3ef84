// Whoever wants to hear of masters.
#pragma once

#include "messages/MasterAddress.h"

namespace quelta {

class MasterDiscoveryListener
{
public:
    /** A master's beacon has arrived, the first or any later one. On the discovery thread; must
        return once that thread has been asked to exit. */
    virtual void masterDetected(const MasterAddress& address) = 0;

protected:
    ~MasterDiscoveryListener() = default;
};

} // namespace quelta
