// The render slave as a process of the system.
//
// One object is one launch. All calls come from the thread that launched, which has to outlive the
// process: where the system kills a child whose parent died, it goes by that thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <juce_core/juce_core.h>

namespace quelta::platform {

class ChildProcess
{
public:
    ChildProcess();
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /** Starts `executable` with `commandLine` (its first word is the name that the child sees), in
        the executable's folder, with the daemon's environment and standard streams and nothing else
        of it. Returns 0, or the system's error number. The system kills the child if this process
        dies, unless getJobError() says otherwise. */
    int launch(const juce::File& executable, const juce::String& commandLine);

    /** Why Windows refused to put the child into the job that ends with this process: the system's
        error number. Such a child outlives a killed daemon. 0 otherwise, and always on Linux. */
    int getJobError() const;

    /** Whether the process has not ended yet. */
    bool isRunning();

    /** The system's number of the launched process, for logs. */
    uint32_t getId() const;

    /** How a process that is no longer running has ended, such as "exit status 3" or "signal 9
        (Killed)". */
    std::string describeEnd() const;

    /** Ends the process by force; returns within half a second, even if the system cannot end it
        now. */
    void kill();

private:
    struct Handle;
    std::unique_ptr<Handle> handle;
};

/** Lets go of killed children that had not ended when they were given up. Any thread; cheap. */
void reapKilledChildren();

} // namespace quelta::platform
