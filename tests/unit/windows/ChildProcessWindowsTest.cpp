#include "platform/ChildProcess.h"

#include <vector>

#include "ImportPatch.h"
#include "app/SlaveProcess.h"
#include "support/StandinSlave.h"
#include "support/ThreadedTest.h"

extern "C" decltype(&CreateProcessW) __imp_CreateProcessW;
extern "C" decltype(&AssignProcessToJobObject) __imp_AssignProcessToJobObject;

namespace quelta::test {
namespace {

BOOL WINAPI failWithoutAnError(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                               DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION)
{
    SetLastError(0);
    return FALSE;
}

class ChildProcessWindowsTest : public ThreadedTest
{
protected:
    platform::ChildProcess child;
};

TEST_F(ChildProcessWindowsTest, AFailureWithoutAnErrorNumberIsAnError)
{
    const StandinSlave standin("exit 0");
    const ImportPatch patch(__imp_CreateProcessW, failWithoutAnError);
    EXPECT_EQ(child.launch(standin.getFile(), "slave"), ERROR_GEN_FAILURE);
    EXPECT_FALSE(child.isRunning());
}

// The first launch in a process creates its job object, so these tests run in child processes.

bool isThisProcess(HANDLE process)
{
    return process == GetCurrentProcess();
}

BOOL refuse()
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

BOOL WINAPI refuseAll(HANDLE, HANDLE)
{
    return refuse();
}

BOOL WINAPI refuseOnlyThisProcess(HANDLE, HANDLE process)
{
    return isThisProcess(process) ? refuse() : TRUE;
}

BOOL WINAPI refuseAfterItsEnd(HANDLE, HANDLE process)
{
    if (!isThisProcess(process))
        WaitForSingleObject(process, INFINITE); // HangGuard limits the wait

    return refuse();
}

class ChildProcessWindowsDeathTest : public ChildProcessWindowsTest
{
protected:
    ChildProcessWindowsDeathTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    /** Launches two slaves and exits with 0 if the launches reported exactly these errors. */
    [[noreturn]] void launchTwice(const char* scenario, decltype(&AssignProcessToJobObject) assign,
                                  const std::vector<int>& expected)
    {
        const StandinSlave standin(scenario);
        const ImportPatch patch(__imp_AssignProcessToJobObject, assign);
        std::vector<int> jobErrors;
        bool good = true;

        for (int launch = 0; launch < 2; ++launch)
        {
            platform::ChildProcess slave;
            good = slave.launch(standin.getFile(), "slave --daemon-port 1") == 0 && good;
            jobErrors.push_back(slave.getJobError());
        }

        std::_Exit(good && jobErrors == expected && log.lines() == Lines{} ? 0 : 1);
    }

    /** Ends the process with a status that tells whether an information run logs `line`. */
    [[noreturn]] void runSlave(decltype(&AssignProcessToJobObject) assign, const std::string& line)
    {
        const StandinSlave standin("hang");
        const ImportPatch patch(__imp_AssignProcessToJobObject, assign);
        DaemonSettings settings;
        settings.slaveExecutable = standin.getFile();
        settings.daemonPort = 5000;
        MonitorPort monitorPort{0};
        const SlaveTimeLimits stopAtOnce{.gracefulStop = 0};
        SlaveProcess process(0, 0, settings, true, nullptr, monitorPort, stopAtOnce);
        const bool logged = log.waitForLine(line);
        process.stopThread(-1);
        std::_Exit(logged ? 0 : 1);
    }
};

TEST_F(ChildProcessWindowsDeathTest, FailingToAssignASlaveToAJobIsAnError)
{
    EXPECT_EXIT(launchTwice("hang", refuseAll, {ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED}),
                testing::ExitedWithCode(0), "");
}

TEST_F(ChildProcessWindowsDeathTest, ASlaveThatNoJobTakesIsLogged)
{
    EXPECT_EXIT(runSlave(refuseAll,
                         "cannot assign the slave to a job (error 5): it will survive "
                         "if the daemon is killed"),
                testing::ExitedWithCode(0), "");
}

TEST_F(ChildProcessWindowsDeathTest, FailingToAssignOnlyTheDaemonIsNotAnError)
{
    EXPECT_EXIT(launchTwice("hang", refuseOnlyThisProcess, {0, 0}), testing::ExitedWithCode(0), "");
}

TEST_F(ChildProcessWindowsDeathTest, ASlaveThatEndsBeforeItsAssignmentIsNotAnError)
{
    EXPECT_EXIT(launchTwice("exit 0", refuseAfterItsEnd, {0, 0}), testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace quelta::test
