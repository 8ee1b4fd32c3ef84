#include "app/SlaveDaemonApp.h"

#include <cstring>

#include "app/CommandLine.h"
#include "app/SlaveProcess.h"
#include "app/StartupSummary.h"
#include "log/Log.h"
#include "platform/Console.h"
#include "platform/MessageWindow.h"
#include "platform/Paths.h"
#include "platform/QuitSignals.h"
#include "platform/Sockets.h"
#include "util/Timing.h"

namespace quelta {

namespace {

constexpr int minPort = 1024;

} // namespace

const juce::String SlaveDaemonApp::getApplicationName()
{
    return "Quelta Slave Daemon";
}

const juce::String SlaveDaemonApp::getApplicationVersion()
{
    return "4.00 XB1 (experimental build)";
}

bool SlaveDaemonApp::moreThanOneInstanceAllowed()
{
    return true; // each on its own port
}

void SlaveDaemonApp::systemRequestedQuit()
{
    quit();
}

void SlaveDaemonApp::initialise(const juce::String& commandLine)
{
    // Until there is something to shut down, Ctrl-C ends the process at once.
    platform::restoreDefaultInterrupt();
    platform::disableConsoleSelection();

    flags::logToStdout = 1;
    initLog(platform::executableFile().getParentDirectory().getFullPathName().toRawUTF8());
    QUELTA_LOG_DAEMON("Command line:");
    QUELTA_LOG_DAEMON("%s", commandLine.toRawUTF8());

    DaemonSettings settings;
    SlaveInformation information;

    if (!guardMessageLoop() || !readSettings(settings) || !gatherInformation(settings, information))
    {
        quit();
        return;
    }

    printStartupSummary(settings, information.version, information.numGpus);

    if (const auto error = platform::installQuitHandlers(flushLog); error != 0)
        logError("signals end the daemon without a shutdown: %s", std::strerror(error));

    platform::startWinsock();
    networkThread = std::make_unique<DaemonNetworkThread>(settings, information.version,
                                                          information.numGpus, lastMonitorPort);
}

void SlaveDaemonApp::shutdown()
{
    platform::resetQuitHandlers();
    networkThread.reset();
    shutdownLog();
    platform::stopWinsock();
    platform::releaseMessageWindow();
    platform::restoreConsoleSelection();
}

/** Prepares the message loop to receive the system's requests to quit. Returns false if it could
    not receive any message, and logs that. */
bool SlaveDaemonApp::guardMessageLoop()
{
    if (platform::guardMessageWindow([this] { shutdown(); }))
        return true;

    logError("the system refused the window through which messages arrive");
    return false;
}

bool SlaveDaemonApp::parseCommandLine(DaemonSettings& settings, juce::String& slavePath)
{
    return quelta::parseCommandLine(getCommandLineParameterArray(), settings, slavePath);
}

/** Reads and checks the settings. Returns false if they are invalid, and logs why. */
bool SlaveDaemonApp::readSettings(DaemonSettings& settings)
{
    juce::String slavePath;

    if (!parseCommandLine(settings, slavePath))
        return false;

    settings.slaveExecutable = platform::resolvePath(slavePath);

    if (!settings.slaveExecutable.existsAsFile())
    {
        logError("\"%s\" is not an existing file.",
                 settings.slaveExecutable.getFullPathName().toRawUTF8());
        return false;
    }

    if (settings.daemonPort < minPort)
    {
        logError("daemon port %d is invalid, should be in range 1024..65535", settings.daemonPort);
        return false;
    }

    return true;
}

/** Performs the information run. Returns false if it failed; the reason has been logged. */
bool SlaveDaemonApp::gatherInformation(const DaemonSettings& settings,
                                       SlaveInformation& information)
{
    logUnprefixed("Launching slave to gather information:\n\n\n");
    SlaveProcess slave(0, 0, settings, true, nullptr, lastMonitorPort);

    while (slave.isThreadRunning())
        juce::Thread::sleep(timing::informationPollMs);

    information = {slave.getSlaveVersion(), slave.getNumProvidedGpus()};
    return !slave.hasFailed();
}

} // namespace quelta
