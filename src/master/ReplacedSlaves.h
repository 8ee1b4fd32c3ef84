// Slaves that run on although another has taken their place, as happens when a master starts one
// under an address that counts as none. They are remembered so that they can be stopped, and
// limited in number so that nobody can start processes without end.
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
    static constexpr size_t limit = 8;

    /** Keeps a slave. Beyond the limit the oldest is stopped, which takes as long as stopping a
        slave does. */
    void add(std::unique_ptr<SlaveProcess> slave);

    /** Whether `thread` is the thread of one of them. */
    bool contains(const juce::Thread* thread) const;

    /** Lets go of those that have ended. */
    void forgetEnded();

    /** Asks all of them to end. */
    void signalAll();

    /** Waits until all have ended, and lets go of them. */
    void waitForAll();

private:
    std::vector<std::unique_ptr<SlaveProcess>> slaves; ///< The oldest first.
};

} // namespace quelta
