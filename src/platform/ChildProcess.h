// The render slave as a child process.
//
// An object stands for one launch. The launching thread makes all calls and must outlive the
// child: Linux sends the parent-death signal when that thread ends, not when the process does.
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

    /** Starts `executable` with `commandLine`, whose first word becomes the child's argv[0]. The
        child runs in the executable's folder. It inherits the daemon's environment and standard
        streams, but no other descriptor or handle. Returns 0, or the system's error number. The
        system kills the child if this process dies, unless getJobError() says otherwise. */
    int launch(const juce::File& executable, const juce::String& commandLine);

    /** Why Windows refused to put the child into the job that ends with this process: the system's
        error number. Such a child outlives a killed daemon. 0 otherwise, and always on Linux. */
    int getJobError() const;

    bool isRunning();

    /** Returns the process ID, for logs. */
    uint32_t getId() const;

    /** Describes how the process has ended, such as "exit status 3" or "signal 9 (Killed)". */
    std::string describeEnd() const;

    /** Kills the process. Returns within half a second, even if the system cannot end the process
        yet. */
    void kill();

private:
    struct Handle;
    std::unique_ptr<Handle> handle;
};

/** Reaps killed children that outlived kill(). Any thread; cheap. */
void reapKilledChildren();

} // namespace quelta::platform
