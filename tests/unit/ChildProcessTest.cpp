#include "platform/ChildProcess.h"

#include "platform/Paths.h"
#include "support/Children.h"
#include "support/StandardStreamCapture.h"
#include "support/StandinSlave.h"
#include "support/ThreadedTest.h"

#include <array>
#include <csignal>
#include <thread>

namespace quelta::test {
namespace {

class ChildProcessTest : public ThreadedTest
{
protected:
    bool waitForEnd()
    {
        return pollUntil([this] { return !child.isRunning(); });
    }

    /** Creates an executable file with these bytes. */
    juce::File makeExecutable(const char* name, std::string_view bytes) const
    {
        const auto file = folder.getChild(name);
        writeBytes(file, bytes);
        file.setExecutePermission(true);
        return file;
    }

    /** The lines that the stand-in prints when launched with this command line. */
    Lines runStandin(const StandinSlave& standin, const juce::String& commandLine)
    {
        juce::StringArray printed;

        {
            const StandardStreamCapture capture(stdout);
            EXPECT_EQ(child.launch(standin.getFile(), commandLine), 0);
            EXPECT_TRUE(waitForEnd());
            printed.addLines(capture.getWritten());
        }

        Lines lines;

        for (const auto& line : printed)
            lines.push_back(line.toStdString());

        return lines;
    }

    /** Waits until no byte arrives for a second or the connection ends, which shows that the peer,
        which sends every 10 ms, is gone. Under Wine the connection does not always end, since the
        server occasionally keeps a socket that it was just using. */
    static bool waitForSilence(juce::StreamingSocket& connection)
    {
        constexpr int silenceMs = 1000;
        const auto start = juce::Time::getMillisecondCounter();
        std::array<char, 256> bytes{};

        while (juce::Time::getMillisecondCounter() - start < hangLimitMs)
        {
            if (connection.waitUntilReady(true, silenceMs) != 1 ||
                connection.read(bytes.data(), bytes.size(), false) <= 0)
                return true;
        }

        return false;
    }

    const TemporaryFolder folder;
    platform::ChildProcess child;
};

TEST_F(ChildProcessTest, NothingRunsBeforeALaunch)
{
    EXPECT_FALSE(child.isRunning());
}

TEST_F(ChildProcessTest, AMissingExecutableIsAnError)
{
    EXPECT_EQ(child.launch(folder.getChild("missing"), "\"missing\""), 2);
    EXPECT_FALSE(child.isRunning());
}

TEST_F(ChildProcessTest, LaunchingAFolderIsAnError)
{
    const auto file = folder.getChild("slave");
    file.createDirectory();
    const auto error = child.launch(file, "\"slave\"");

    if (platform::absolutePathsHaveRoot())
        EXPECT_TRUE(error == 5 || error == 6) << error; // access denied; Wine: invalid handle
    else
        EXPECT_EQ(error, 13);

    EXPECT_FALSE(child.isRunning());
}

TEST_F(ChildProcessTest, AProgramRunsUntilItEnds)
{
    const StandinSlave standin("wait 200\nexit 3");
    EXPECT_EQ(child.launch(standin.getFile(), "slave --daemon-port 1"), 0);
    EXPECT_TRUE(child.isRunning());
    EXPECT_TRUE(waitForEnd());
}

TEST_F(ChildProcessTest, KillingAProgramEndsIt)
{
    const StandinSlave standin("hang");
    ASSERT_EQ(child.launch(standin.getFile(), "slave --daemon-port 1"), 0);
    child.kill();
    EXPECT_TRUE(waitForEnd());
}

TEST_F(ChildProcessTest, DestroyingTheObjectEndsTheProgram)
{
    const StandinSlave standin("connect\nbeat 10");
    juce::StreamingSocket door;
    ASSERT_TRUE(door.createListener(0, "127.0.0.1"));
    std::unique_ptr<juce::StreamingSocket> connection;

    {
        platform::ChildProcess shortLived;
        const auto port = juce::String(door.getBoundPort());
        ASSERT_EQ(shortLived.launch(standin.getFile(), "slave --daemon-port " + port), 0);
        connection.reset(door.waitForNextConnection());
        ASSERT_TRUE(connection);
        ASSERT_EQ(connection->waitUntilReady(true, hangLimitMs), 1);
    }

    EXPECT_TRUE(waitForSilence(*connection));
}

/** POSIX only: permissions, descriptors, signals, zombies. */
class ChildProcessPosixTest : public ChildProcessTest
{
protected:
    void SetUp() override
    {
        if (platform::absolutePathsHaveRoot() || !processesAreShownAsFiles())
            GTEST_SKIP() << "this system has no POSIX permissions, descriptors and signals to test";
    }

    /** Runs a program of the system and returns its output. */
    std::string runProgram(const char* path, const juce::String& commandLine)
    {
        const StandardStreamCapture capture(stdout);
        EXPECT_EQ(child.launch(juce::File(path), commandLine), 0);
        EXPECT_TRUE(waitForEnd());
        return capture.getWritten();
    }
};

TEST_F(ChildProcessPosixTest, AFileWithoutExecutePermissionIsAnError)
{
    const auto file = folder.getChild("slave");
    writeBytes(file, "#!/bin/sh\n");
    EXPECT_EQ(child.launch(file, "\"slave\""), 13);
    EXPECT_EQ(getChildren().size(), 0u);
}

TEST_F(ChildProcessPosixTest, AFileInNoExecutableFormatIsAnError)
{
    EXPECT_EQ(child.launch(makeExecutable("slave", "no program"), "\"slave\""), 8);
    EXPECT_EQ(getChildren().size(), 0u);
}

TEST_F(ChildProcessPosixTest, AScriptWhoseInterpreterIsMissingIsAnError)
{
    EXPECT_EQ(child.launch(makeExecutable("slave", "#!/nowhere/sh\n"), "\"slave\""), 2);
    EXPECT_EQ(getChildren().size(), 0u);
}

TEST_F(ChildProcessPosixTest, AScriptIsLaunched)
{
    EXPECT_EQ(child.launch(makeExecutable("slave", "#!/bin/sh\nexit 0\n"), "\"slave\""), 0);
    EXPECT_TRUE(waitForEnd());
}

TEST_F(ChildProcessPosixTest, ALaunchCanFollowAFailedOne)
{
    ASSERT_EQ(child.launch(folder.getChild("missing"), "\"missing\""), 2);
    EXPECT_EQ(child.launch(juce::File("/bin/true"), "true"), 0);
    EXPECT_TRUE(waitForEnd());
}

TEST_F(ChildProcessPosixTest, PollingReapsAnEndedProgram)
{
    ASSERT_EQ(child.launch(juce::File("/bin/true"), "true"), 0);
    EXPECT_TRUE(waitForEnd());
    EXPECT_EQ(getChildren().size(), 0u);
}

TEST_F(ChildProcessPosixTest, KillingReapsTheProgramAtOnce)
{
    ASSERT_EQ(child.launch(juce::File("/bin/sleep"), "sleep 1000"), 0);
    ASSERT_EQ(getChildren().size(), 1u);
    EXPECT_LT(timeOf([this] { child.kill(); }), 1'500u); // reaping takes 500 at most
    EXPECT_EQ(getChildren().size(), 0u);
}

TEST_F(ChildProcessPosixTest, NoProgramOutlivesItsObject)
{
    {
        platform::ChildProcess shortLived;
        ASSERT_EQ(shortLived.launch(juce::File("/bin/sleep"), "sleep 1000"), 0);
    }

    EXPECT_EQ(getChildren().size(), 0u);
}

TEST_F(ChildProcessPosixTest, AProgramDiesWithTheThreadThatLaunchedIt)
{
    std::thread([this] {
        EXPECT_EQ(child.launch(juce::File("/bin/sleep"), "sleep 1000"), 0);
    }).join();
    EXPECT_TRUE(waitForEnd());
}

TEST_F(ChildProcessPosixTest, OnlyTheStandardStreamsAreInherited)
{
    const int inheritable = open("/dev/null", O_RDONLY);
    juce::StreamingSocket listener;
    ASSERT_TRUE(listener.createListener(0, "127.0.0.1"));

    // Descriptor 3 is the folder that ls lists.
    EXPECT_EQ(runProgram("/bin/ls", "ls /proc/self/fd"), "0\n1\n2\n3\n");
    close(inheritable);
}

TEST_F(ChildProcessPosixTest, AnIgnoredSignalIsResetToItsDefaultInTheProgram)
{
    constexpr auto termination = 1ULL << (SIGTERM - 1);
    const auto parsed = [](const std::string& mask) { return std::stoull(mask, nullptr, 16); };
    auto* const before = std::signal(SIGTERM, SIG_IGN);
    EXPECT_NE(parsed(getStatusValue(juce::File("/proc/self"), "SigIgn")) & termination, 0u);
    const auto status = runProgram("/bin/cat", "cat /proc/self/status");
    std::signal(SIGTERM, before);
    const auto position = status.find("SigIgn:\t");
    ASSERT_NE(position, std::string::npos) << status;
    EXPECT_EQ(parsed(status.substr(position + 8, 16)) & termination, 0u);
}

TEST_F(ChildProcessPosixTest, TheProgramInheritsTheSignalMaskOfTheLaunchingThread)
{
    const auto own = getStatusValue(juce::File("/proc/thread-self"), "SigBlk");
    const auto status = runProgram("/bin/cat", "cat /proc/self/status");
    EXPECT_NE(status.find("SigBlk:\t" + own + "\n"), std::string::npos) << status;
}

TEST_F(ChildProcessPosixTest, TheProgramSharesTheDaemonsProcessGroup)
{
    const auto own = getStatusValue(juce::File("/proc/self"), "NSpgid");
    const auto status = runProgram("/bin/cat", "cat /proc/self/status");
    EXPECT_NE(status.find("NSpgid:\t" + own + "\n"), std::string::npos) << status;
}

TEST_F(ChildProcessPosixTest, TheProgramStartsInItsOwnFolder)
{
    const auto slave = makeExecutable("slave", "#!/bin/sh\npwd -P\n");
    EXPECT_EQ(runProgram(slave.getFullPathName().toRawUTF8(), "slave"), folder.getPath() + "\n");
}

TEST_F(ChildProcessPosixTest, TheCommandLineIsSplitIntoArguments)
{
    const StandinSlave standin("exit 0", "slave with blanks");
    const auto lines = runStandin(
        standin, juce::String::fromUTF8("\"slave with blanks\" --daemon-port 1"
                                        " --alias \"a  b\\\"c\"\"d\\\\\" -g\t0 \"\" \xC3\xBC"));
    ASSERT_GE(lines.size(), 9u);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 9),
              (Lines{"standin: argument 0: [slave with blanks]",
                     "standin: argument 1: [--daemon-port]", "standin: argument 2: [1]",
                     "standin: argument 3: [--alias]", "standin: argument 4: [a  b\"c\"d\\]",
                     "standin: argument 5: [-g]", "standin: argument 6: [0]",
                     "standin: argument 7: []", "standin: argument 8: [\xC3\xBC]"}));
}

} // namespace
} // namespace quelta::test
