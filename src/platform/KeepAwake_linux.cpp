#include "platform/KeepAwake.h"

#include <atomic>

namespace quelta::platform {

namespace {

std::atomic<int> requestsHeld{0};

} // namespace

KeepAwake::KeepAwake(bool wanted) : held(wanted)
{
    requestsHeld += held ? 1 : 0;
}

KeepAwake::~KeepAwake()
{
    requestsHeld -= held ? 1 : 0;
}

int KeepAwake::countHeld()
{
    return requestsHeld;
}

} // namespace quelta::platform
