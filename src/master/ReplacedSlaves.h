// Slaves that still run although another one has replaced them. This happens when a master starts
// one under an unusable address (ip or port 0). They are kept so that they can be stopped, and
// their number is limited, so that masters cannot start processes without bound.
//
// Every call is made under the DaemonNetworkThread's lock.
#pragma once

#include <memory>
#include <vector>

#include "app/SlaveProcess.h"

namespace quelta {

class ReplacedSlaves
{
public:
    static constexpr size_t maxSlaves = 8;

    /** Adds a slave. Above the limit, stops the oldest one and waits until it has ended. */
    void add(std::unique_ptr<SlaveProcess> slave);

    /** Whether `thread` is the thread of one of them. */
    bool contains(const juce::Thread* thread) const;

    /** Removes the slaves that have ended. */
    void removeEnded();

    /** Asks all of them to end. */
    void signalAll();

    /** Waits until all have ended, then removes them. */
    void waitForAll();

private:
    std::vector<std::unique_ptr<SlaveProcess>> slaves; ///< The oldest first.
};

} // namespace quelta
