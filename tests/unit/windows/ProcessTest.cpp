#include "platform/Process.h"

#include <gtest/gtest.h>

#include <windows.h>

#include "platform/KeepAwake.h"

namespace quelta::test {
namespace {

TEST(ProcessTest, FaultsShowNoDialog)
{
    SetErrorMode(0);
    platform::prepareProcess();
    EXPECT_EQ(GetErrorMode(),
              UINT{SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX});
}

TEST(ProcessTest, TheSystemIsRequiredWhileARequestToStayAwakeIsHeld)
{
    SetThreadExecutionState(ES_CONTINUOUS); // Wine's initial state differs from that of Windows

    {
        const platform::KeepAwake keepAwake;
        const EXECUTION_STATE required = ES_CONTINUOUS | ES_SYSTEM_REQUIRED;
        EXPECT_EQ(SetThreadExecutionState(required), required);
    }

    EXPECT_EQ(SetThreadExecutionState(ES_CONTINUOUS), EXECUTION_STATE{ES_CONTINUOUS});
}

} // namespace
} // namespace quelta::test
