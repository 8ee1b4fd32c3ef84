#include "platform/RecursiveMutex.h"

#include <mutex>

namespace quelta::platform {

struct RecursiveMutex::System
{
    std::recursive_mutex mutex;
};

RecursiveMutex::RecursiveMutex() : system(std::make_unique<System>()) {}

RecursiveMutex::~RecursiveMutex() = default;

void RecursiveMutex::lock()
{
    system->mutex.lock();
}

bool RecursiveMutex::try_lock()
{
    return system->mutex.try_lock();
}

void RecursiveMutex::unlock()
{
    system->mutex.unlock();
}

} // namespace quelta::platform
