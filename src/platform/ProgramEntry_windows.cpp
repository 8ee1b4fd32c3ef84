#include "platform/ProgramEntry.h"

#include <juce_events/juce_events.h>

namespace quelta::platform {

int runApplication(int, char**)
{
    // JUCE reads the UTF-16 command line of the process.
    return juce::JUCEApplicationBase::main();
}

} // namespace quelta::platform
