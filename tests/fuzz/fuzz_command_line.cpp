// Parameters of the daemon, one per line.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "app/CommandLine.h"
#include "util/ValidUtf8.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto text = quelta::toValidUtf8({reinterpret_cast<const char*>(data), size});
    juce::StringArray parameters;
    parameters.addLines(juce::String::fromUTF8(text.c_str()));

    quelta::DaemonSettings settings;
    juce::String slavePath;

    if (quelta::parseCommandLine(parameters, settings, slavePath) &&
        (slavePath.isEmpty() || settings.daemonPort == 0))
        std::abort();
    return 0;
}
