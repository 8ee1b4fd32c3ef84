// What a contained program inherits, in each way of containment.
#include "support/ContainmentDriver.h"

namespace quelta::test {
namespace {

class ExecSlaveProgramStateTest : public ContainmentDriverTest
{
protected:
    /** What a shell command prints as the contained program. */
    std::string run(const char* command)
    {
        start("shell", command);
        EXPECT_EQ(readLine(), GetParam().text);
        return readAll();
    }
};

TEST_P(ExecSlaveProgramStateTest, OnlyTheStandardStreamsAreOpen)
{
    EXPECT_EQ(run("readlink /proc/$$/fd/0; readlink /proc/$$/fd/1 | cut -c1-5\n"
                  "[ /proc/$$/fd/1 -ef /proc/$$/fd/2 ] && echo same; ls /proc/$$/fd"),
              "/dev/null\npipe:\nsame\n0\n1\n2\n");
}

TEST_P(ExecSlaveProgramStateTest, SignalsAreNeitherBlockedNorIgnored)
{
    EXPECT_EQ(run("exec grep -E '^Sig(Blk|Ign)' /proc/self/status"),
              "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST_P(ExecSlaveProgramStateTest, ProcShowsTheProcessesAsTheyAreNumbered)
{
    EXPECT_EQ(run("tr '\\0' ' ' < /proc/$$/cmdline | cut -c1-5; cat /proc/$$/comm"), "sh -c\nsh\n");
}

TEST_P(ExecSlaveProgramStateTest, TheProgramLeadsAProcessGroupAndKeepsTheUser)
{
    EXPECT_EQ(run("set -- $(cat /proc/$$/stat); [ $5 = $$ ] && echo leader\n"
                  "file=$(mktemp); [ $(stat -c %u $file) = $(id -u) ] && echo owner\n"
                  "rm $file"),
              "leader\nowner\n");
}

TEST_P(ExecSlaveProgramStateTest, OnlyTheProgramStaysInItsFolder)
{
    if (std::string(GetParam().name) == "PidNamespaceOfUser")
        GTEST_SKIP() << "the kernel does not show the guardian's folder to the program";

    EXPECT_EQ(run("cd /proc/$PPID; for i in $(seq 500); do\n"
                  "[ \"$(readlink cwd)\" = / ] && echo free && break; sleep 0.01; done"),
              "free\n");
}

INSTANTIATE_TEST_SUITE_P(Ways, ExecSlaveProgramStateTest, testing::ValuesIn(listContainmentWays()),
                         [](const auto& information) { return information.param.name; });

} // namespace
} // namespace quelta::test
