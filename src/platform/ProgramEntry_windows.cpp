#include "platform/ProgramEntry.h"

#include <juce_events/juce_events.h>

namespace quelta::platform {

int runApplication(int, char**)
{
    // The framework reads the UTF-16 command line of the process itself.
    return juce::JUCEApplicationBase::main();
}

} // namespace quelta::platform
