#include "platform/QuitSignals.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace quelta::test {
namespace {

constexpr unsigned loopLimitSeconds = 20;

/** Runs in a child process; if the handler is called in an endless loop, SIGALRM ends it. */
class QuitSignalsDeathTest : public testing::Test
{
protected:
    QuitSignalsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void prepare()
    {
        alarm(loopLimitSeconds);
        platform::installQuitHandlers(nullptr);
    }
};

TEST_F(QuitSignalsDeathTest, ARepeatedFaultEndsTheProcess)
{
    EXPECT_EXIT(
        {
            prepare();
            __builtin_trap();
        },
        testing::KilledBySignal(SIGILL), "");
}

TEST_F(QuitSignalsDeathTest, AnAbortEndsTheProcess)
{
    EXPECT_EXIT(
        {
            prepare();
            std::abort();
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST_F(QuitSignalsDeathTest, AnInterruptOnlyRequestsTheQuit)
{
    EXPECT_EXIT(
        {
            prepare();
            std::raise(SIGINT);
            std::raise(SIGINT);
            _exit(platform::quitWasRequested() ? 7 : 8);
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(QuitSignalsDeathTest,
       WithoutAFreeDescriptorTheHandlersAreRefusedAndATerminationEndsTheProcess)
{
    EXPECT_EXIT(
        {
            const rlimit noMore{};
            setrlimit(RLIMIT_NOFILE, &noMore);

            if (platform::installQuitHandlers(nullptr) == EMFILE)
                std::raise(SIGTERM); // a background process may have inherited SIGINT as ignored
        },
        testing::KilledBySignal(SIGTERM), "");
}

} // namespace
} // namespace quelta::test
