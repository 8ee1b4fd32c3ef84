// The daemon as an application of the framework: starts everything in order, and takes it down in
// the reverse order. Start-up failures end it through the message loop; they are told as text only,
// the exit status is always 0. Everything here runs on the message thread.
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

    /** Reads the command line of this process; false when it is no good, which has been logged
        then. */
    bool parseCommandLine(DaemonSettings& settings, juce::String& slavePath);

private:
    /** What the slave says of itself when asked at start-up. */
    struct SlaveInformation
    {
        uint32_t version = 0;
        uint32_t numGpus = 0;
    };

    bool guardMessageLoop();
    bool readSettings(DaemonSettings& settings);
    bool gatherInformation(const DaemonSettings& settings, SlaveInformation& information);

    MonitorPort lastMonitorPort{0};                     ///< Of the information run, too.
    std::unique_ptr<DaemonNetworkThread> networkThread; ///< Null until start-up has succeeded.
};

} // namespace quelta
