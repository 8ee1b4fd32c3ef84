#include <juce_events/juce_events.h>

#include "platform/ProgramEntry.h"

namespace quelta::platform {

int runApplication(int argc, char** argv)
{
    return juce::JUCEApplicationBase::main(argc, const_cast<const char**>(argv));
}

} // namespace quelta::platform
