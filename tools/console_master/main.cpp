#include <atomic>
#include <csignal>
#include <cstdio>

#include <juce_core/juce_core.h>

#include "console_master/ConsoleMaster.h"
#include "console_master/ConsoleStream.h"
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

int run(int argc, char** argv, std::ostream& out, std::ostream& err)
{
    quelta::Options options;
    options.text = defaultText();

    if (const auto status = quelta::parseOptions(argc, argv, options, out, err))
        return *status;

    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
    return quelta::ConsoleMaster(options, out, err, stopRequested).run();
}

} // namespace

int main(int argc, char** argv)
{
    using quelta::platform::StandardStream;
    quelta::platform::prepareProcess();

    quelta::ConsoleStream err(StandardStream::error, stderr);
    err << std::unitbuf;
    quelta::ConsoleStream out(StandardStream::output, stdout, &err);

    const int status = run(argc, argv, out, err);
    return out.flush() ? status : quelta::exitLocalFailure;
}
