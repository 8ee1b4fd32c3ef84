// The entry point of quelta_master, the console master.
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include <juce_core/juce_core.h>

#include "console_master/ConsoleMaster.h"
#include "console_master/ConsoleStream.h"
#include "console_master/Options.h"
#include "console_master/StopRequest.h"
#include "console_master/platform/ProgramArguments.h"
#include "console_master/platform/StopSignals.h"
#include "messages/MasterDaemonMessage.h"
#include "platform/Process.h"

namespace {

quelta::StopRequest stopRequest;

std::string defaultText()
{
    const auto text = "quelta_master on " + juce::SystemStats::getComputerName().toStdString();
    return text.substr(0, quelta::MasterDaemonMessage::textSize);
}

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err)
{
    quelta::Options options;
    options.text = defaultText();

    if (const auto status = quelta::parseOptions(arguments, options, out, err))
        return *status;

    quelta::installStopSignals(stopRequest);
    return quelta::ConsoleMaster(options, out, err, stopRequest).run();
}

} // namespace

int main(int argc, char** argv)
{
    using quelta::platform::StandardStream;
    quelta::platform::prepareProcess();

    quelta::ConsoleStream err(StandardStream::error, stderr);
    err << std::unitbuf;
    quelta::ConsoleStream out(StandardStream::output, stdout, &err);

    const int status = run(quelta::programArguments(argc, argv), out, err);
    return out.flush() ? status : quelta::exitLocalFailure;
}
