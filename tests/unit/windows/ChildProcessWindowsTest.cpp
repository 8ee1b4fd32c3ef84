#include "platform/ChildProcess.h"

#include "ImportPatch.h"
#include "support/StandinSlave.h"
#include "support/ThreadedTest.h"

extern "C" decltype(&CreateProcessW) __imp_CreateProcessW;

namespace quelta::test {
namespace {

BOOL WINAPI failWithoutAnError(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                               LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION)
{
    SetLastError(0);
    return FALSE;
}

class ChildProcessWindowsTest : public ThreadedTest
{
protected:
    platform::ChildProcess child;
};

TEST_F(ChildProcessWindowsTest, AFailureWithoutAnErrorNumberIsNoSuccess)
{
    const StandinSlave standin("exit 0");
    const ImportPatch patch(__imp_CreateProcessW, failWithoutAnError);
    EXPECT_EQ(child.launch(standin.getFile(), "slave"), ERROR_GEN_FAILURE);
    EXPECT_FALSE(child.isRunning());
}

} // namespace
} // namespace quelta::test
