// Keeps an idle machine from going to sleep. A no-op on Linux, where the service's unit takes an
// inhibitor lock.
#pragma once

namespace quelta::platform {

/** Keeps the machine awake while the object lives. Create and destroy it on the same thread,
    because Windows ties the request to the thread. */
class KeepAwake
{
public:
    KeepAwake();
    ~KeepAwake();

    KeepAwake(const KeepAwake&) = delete;
    KeepAwake& operator=(const KeepAwake&) = delete;
};

} // namespace quelta::platform
