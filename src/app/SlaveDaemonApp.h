// The daemon as a JUCE application: starts the subsystems in order and shuts them down in reverse
// order. A start-up error is logged and ends the message loop; the exit status is 0 even then.
// Everything here runs on the message thread.
#pragma once

#include <memory>

#include <juce_events/juce_events.h>

#include "app/DaemonSettings.h"
#include "master/DaemonNetworkThread.h"
#include "slave/MonitorPort.h"

namespace quelta {

class SlaveDaemonApp final : public juce::JUCEApplicationBase
{
public:
    const juce::String getApplicationName() override;
    const juce::String getApplicationVersion() override;
    bool moreThanOneInstanceAllowed() override;
    void initialise(const juce::String& commandLine) override;
    void shutdown() override;
    void anotherInstanceStarted(const juce::String&) override {}
    void systemRequestedQuit() override;
    void suspended() override {}
    void resumed() override {}
    void unhandledException(const std::exception*, const juce::String&, int) override {}

    /** Parses the command line of this process. Returns false if it is invalid, and logs why. */
    bool parseCommandLine(DaemonSettings& settings, juce::String& slavePath);

private:
    /** What the slave reports in the information run. */
    struct SlaveInformation
    {
        uint32_t version = 0;
        uint32_t numGpus = 0;
    };

    bool guardMessageLoop();
    bool readSettings(DaemonSettings& settings);
    bool gatherInformation(const DaemonSettings& settings, SlaveInformation& information);

    MonitorPort lastMonitorPort{0}; ///< Shared by the information run and all launches.
    std::unique_ptr<DaemonNetworkThread> networkThread; ///< Null until start-up has succeeded.
};

} // namespace quelta
