#include "platform/ProgramEntry.h"

#include <string>
#include <vector>

#include <juce_events/juce_events.h>

#include "util/ValidUtf8.h"

namespace quelta::platform {

int runApplication(int argc, char** argv)
{
    // Shells pass on arbitrary bytes. JUCE keeps the pointers until main() returns.
    std::vector<std::string> parameters;

    for (int i = 0; i < argc; ++i)
        parameters.push_back(toValidUtf8(argv[i]));

    std::vector<const char*> pointers;

    for (const auto& parameter : parameters)
        pointers.push_back(parameter.c_str());

    return juce::JUCEApplicationBase::main(argc, pointers.data());
}

} // namespace quelta::platform
