// Counts the notifications of a SlaveProcess.
#pragma once

#include <atomic>

#include "app/SlaveProcess.h"

namespace quelta::test {

class SlaveListener final : public SlaveProcessOwner
{
public:
    void notifySlaveRunning() override { ++timesRunning; }
    void notifySlaveFailed() override { ++timesFailed; }

    std::atomic<int> timesRunning{0};
    std::atomic<int> timesFailed{0};
};

} // namespace quelta::test
