#include <atomic>
#include <csignal>
#include <iostream>

#include <juce_core/juce_core.h>

#include "console_master/ConsoleMaster.h"
#include "console_master/Options.h"
#include "messages/MasterDaemonMessage.h"
#include "platform/Process.h"

namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

extern "C" void requestStop(int signal)
{
    // The second one ends the program at once, on every system.
    std::signal(signal, SIG_DFL);
    stopRequested = true;
}

std::string defaultText()
{
    const auto text = "quelta_master on " + juce::SystemStats::getComputerName().toStdString();
    return text.substr(0, quelta::MasterDaemonMessage::textSize);
}

} // namespace

int main(int argc, char** argv)
{
    quelta::platform::prepareProcess();

    quelta::Options options;
    options.text = defaultText();

    if (const auto status = quelta::parseOptions(argc, argv, options, std::cout, std::cerr))
        return *status;

    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
    return quelta::ConsoleMaster(options, std::cout, std::cerr, stopRequested).run();
}
