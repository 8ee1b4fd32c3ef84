#include "platform/KeepAwake.h"

#include <windows.h>

#include <atomic>

namespace quelta::platform {

namespace {

std::atomic<int> requestsHeld{0};

} // namespace

KeepAwake::KeepAwake(bool wanted) : held(wanted)
{
    if (!held)
        return;

    ++requestsHeld;
    SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
}

KeepAwake::~KeepAwake()
{
    if (!held)
        return;

    SetThreadExecutionState(ES_CONTINUOUS);
    --requestsHeld;
}

int KeepAwake::countHeld()
{
    return requestsHeld;
}

} // namespace quelta::platform
