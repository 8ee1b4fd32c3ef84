// Keeps an idle machine from going to sleep by itself. On Linux a no-op: there the service's unit
// takes an inhibitor lock.
#pragma once

namespace quelta::platform {

/** The request holds while the object lives. Windows ties it to the thread, so an object is made
    and destroyed on the same one. */
class KeepAwake
{
public:
    KeepAwake();
    ~KeepAwake();

    KeepAwake(const KeepAwake&) = delete;
    KeepAwake& operator=(const KeepAwake&) = delete;
};

} // namespace quelta::platform
