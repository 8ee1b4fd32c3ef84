#include "platform/RecursiveMutex.h"

#include <juce_core/juce_core.h>

namespace quelta::platform {

struct RecursiveMutex::System
{
    juce::CriticalSection mutex;
};

RecursiveMutex::RecursiveMutex() : system(std::make_unique<System>()) {}

RecursiveMutex::~RecursiveMutex() = default;

void RecursiveMutex::lock()
{
    system->mutex.enter();
}

bool RecursiveMutex::try_lock()
{
    return system->mutex.tryEnter();
}

void RecursiveMutex::unlock()
{
    system->mutex.exit();
}

} // namespace quelta::platform
