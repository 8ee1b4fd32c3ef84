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

constexpr int lowestPort = 1024;

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
    return true; // each with a port of its own
}

void SlaveDaemonApp::systemRequestedQuit()
{
    quit();
}

void SlaveDaemonApp::initialise(const juce::String& commandLine)
{
    // Ctrl-C ends the process at once until there is something to take down in order.
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

/** Lets the system's requests to end arrive; false if it lets nothing arrive, which has been logged
    then. */
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

/** The settings, checked; false when something is wrong with them, which has been logged then. */
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

    if (settings.daemonPort < lowestPort)
    {
        logError("daemon port %d is invalid, should be in range 1024..65535", settings.daemonPort);
        return false;
    }

    return true;
}

/** Runs the slave once; false when that failed, which has been logged then. */
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
