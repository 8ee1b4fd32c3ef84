#include "exec_slave/platform/ContainedProgram.h"

#include "support/ContainedWorker.h"
#include "support/ContainmentWays.h"
#include "support/HangGuard.h"
#include "support/TemporaryFolder.h"
#include "support/Wine.h"

namespace quelta::test {
namespace {

using execslave::ContainedProgram;
using execslave::ProgramStart;
using std::chrono::milliseconds;

class ExecSlaveContainedProgramTest : public testing::Test
{
protected:
    /** Why the program cannot be started. */
    static std::string getError(const ProgramStart& start)
    {
        std::string error;
        EXPECT_EQ(ContainedProgram::start(start, error), nullptr);
        return error;
    }

    const TemporaryFolder folder;

private:
    HangGuard hangGuard;
};

TEST_F(ExecSlaveContainedProgramTest, OutputAndExitStatusArePassedOn)
{
    const auto program = startProgram(makeWorkerStart({"print", "hello", "exit", "3"}));
    EXPECT_EQ(readAll(*program), "hello\n");
    const auto end = program->waitForEnd(endLimit);
    ASSERT_TRUE(end.has_value());
    EXPECT_EQ(end->text, "exit status 3");
    EXPECT_EQ(end->status, 3);
}

TEST_F(ExecSlaveContainedProgramTest, ACrashIsDescribed)
{
    const auto program = startProgram(makeWorkerStart({"crash"}));
    EXPECT_EQ(waitForEndText(*program), crashText);
}

TEST_F(ExecSlaveContainedProgramTest, ArgumentsArriveUnchanged)
{
    for (const std::string argument :
         {"two words", "", "a\"b", "\\", "c:\\folder\\", "back\\\\\"slashes\\\\", "\"quoted\"",
          "tab\there", "$HOME %PATH% * ?", "\xC3\xA4 \xE2\x82\xAC"})
        EXPECT_EQ(runToEnd(makeWorkerStart({"print", argument})), argument + "\n");
}

TEST_F(ExecSlaveContainedProgramTest, VariablesAreSetInTheInheritedEnvironment)
{
    const auto home = juce::SystemStats::getEnvironmentVariable("PATH", {}).toStdString();
    auto start = makeWorkerStart({"variable", "PATH", "variable", "QUELTA_TEST_VARIABLE"});
    start.environment["QUELTA_TEST_VARIABLE"] = "some value";
    EXPECT_EQ(runToEnd(start), "PATH=" + home + "\nQUELTA_TEST_VARIABLE=some value\n");
}

TEST_F(ExecSlaveContainedProgramTest, AnEmptyValueRemovesAVariable)
{
    auto start = makeWorkerStart({"variable", "PATH"});
    start.environment["PATH"] = "";
    EXPECT_EQ(runToEnd(start), "PATH=(not set)\n");
}

TEST_F(ExecSlaveContainedProgramTest, TheProgramRunsInItsFolder)
{
    auto start = makeWorkerStart({"folder"});
    start.folder = folder.getPath();
    EXPECT_EQ(runToEnd(start), folder.getPath() + "\n");
}

TEST_F(ExecSlaveContainedProgramTest, AProgramIsFoundInThePathOfItsEnvironment)
{
    const auto copy = folder.getChild("a_worker").withFileExtension(getWorker().getFileExtension());
    ASSERT_TRUE(getWorker().copyFileTo(copy));
    copy.setExecutePermission(true);

    ProgramStart start{{"a_worker", "print", "found"}, {}, {{"PATH", folder.getPath()}}};
    EXPECT_EQ(juce::File(juce::String(findProgram(start))), copy);
    EXPECT_EQ(runToEnd(start), "found\n");
}

TEST_F(ExecSlaveContainedProgramTest, ARelativePathStartsFromTheProgramsFolder)
{
    const auto copy =
        folder.getChild("bin/a_worker").withFileExtension(getWorker().getFileExtension());
    copy.getParentDirectory().createDirectory();
    ASSERT_TRUE(getWorker().copyFileTo(copy));
    copy.setExecutePermission(true);

    ProgramStart start{{"bin/a_worker", "print", "found"}, folder.getPath(), {}};
    EXPECT_EQ(juce::File(juce::String(findProgram(start))), copy);
    EXPECT_EQ(runToEnd(start), "found\n");
}

TEST_F(ExecSlaveContainedProgramTest, AMissingProgramIsToldInTheSystemsWords)
{
    const ProgramStart start{{"no_such_program"}, {}, {}};
    EXPECT_EQ(getError(start), std::string("cannot run no_such_program: ") + missingFileText);
    EXPECT_EQ(findProgram(start), "");

    const auto path = folder.getPath() + "/missing";
    EXPECT_EQ(getError({{path}, {}, {}}), "cannot run " + path + ": " + missingFileText);
}

TEST_F(ExecSlaveContainedProgramTest, AMissingFolderIsToldInTheSystemsWords)
{
    auto start = makeWorkerStart({"folder"});
    start.folder = folder.getPath() + "/missing";
    EXPECT_EQ(getError(start), "cannot enter the folder " + start.folder + ": " + missingFileText);
}

TEST_F(ExecSlaveContainedProgramTest, AFileThatIsNoProgramIsToldInTheSystemsWords)
{
    const auto file = folder.getChild("text.exe");
    writeBytes(file, "this is no program\n");
    file.setExecutePermission(true);
    const auto path = file.getFullPathName().toStdString();
    EXPECT_EQ(getError({{path}, {}, {}}), "cannot run " + path + ": " + noProgramText);
}

TEST_F(ExecSlaveContainedProgramTest, WaitingForOutputAndEndHasALimit)
{
    const auto program = startProgram(makeWorkerStart({"print", "ready", "hang"}));
    EXPECT_EQ(readUntil(*program, "ready\n"), "ready\n");
    char byte = 0;
    EXPECT_EQ(program->read(&byte, 1, milliseconds(20)), 0);
    EXPECT_EQ(program->waitForEnd(milliseconds(20)), std::nullopt);
}

TEST_F(ExecSlaveContainedProgramTest, ARequestToEndReachesTheProgram)
{
    if (runsUnderWine())
        GTEST_SKIP() << "Wine delivers no Ctrl-Break";

    const auto program = startProgram(makeWorkerStart({"on-stop", "0", "print", "ready", "hang"}));
    readUntil(*program, "ready\n");
    program->requestEnd("TERM");
    EXPECT_EQ(readAll(*program), "stop requested\n");
    EXPECT_EQ(waitForEndText(*program), "exit status 0");
    program->requestEnd("TERM"); // does nothing
}

TEST_F(ExecSlaveContainedProgramTest, KillEndsAProgramThatIgnoresRequests)
{
    const auto program = startProgram(makeWorkerStart({"ignore-stop", "print", "ready", "hang"}));
    readUntil(*program, "ready\n");
    program->requestEnd("TERM");
    EXPECT_EQ(program->waitForEnd(milliseconds(50)), std::nullopt);
    program->kill();
    EXPECT_EQ(waitForEndText(*program, milliseconds::zero()), killText);
    program->kill();
    EXPECT_EQ(readAll(*program), "");
}

TEST_F(ExecSlaveContainedProgramTest, OutputFromBeforeTheEndCanBeReadLater)
{
    const auto program = startProgram(makeWorkerStart({"print", "last words"}));
    EXPECT_EQ(waitForEndText(*program), "exit status 0");
    program->kill();
    EXPECT_EQ(readAll(*program), "last words\n");
    char byte = 0;
    EXPECT_EQ(program->read(&byte, 1, endLimit), -1);
}

} // namespace
} // namespace quelta::test
