#include "exec_slave/platform/ProcessTree.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include "exec_slave/platform/ControlGroup.h"
#include "exec_slave/platform/SystemError.h"

namespace quelta::execslave {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Kind = GuardianReport::Kind;

constexpr std::chrono::milliseconds killLimit{5000};

/** Waits for input. False if none came in time. */
bool waitForInput(int descriptor, std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;

    for (;;)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd event{descriptor, POLLIN, 0};
        const auto count = poll(&event, 1, static_cast<int>(std::max<int64_t>(0, left.count())));

        if (count >= 0 || errno != EINTR)
            return count > 0;
    }
}

struct ReceivedReport
{
    GuardianReport report;
    pid_t sender = 0; ///< As this process sees it.
};

/** Waits for a report. Returns false at the end of the connection. */
bool receive(int control, ReceivedReport& received)
{
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> ancillary{};
    iovec data{&received.report, sizeof(received.report)};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = ancillary.data();
    message.msg_controllen = ancillary.size();
    ssize_t size = 0;

    do
        size = recvmsg(control, &message, MSG_CMSG_CLOEXEC);
    while (size < 0 && errno == EINTR);

    if (size != sizeof(received.report))
        return false;

    if (const auto* const header = CMSG_FIRSTHDR(&message);
        header != nullptr && header->cmsg_type == SCM_CREDENTIALS)
    {
        ucred sender{};
        std::memcpy(&sender, CMSG_DATA(header), sizeof(sender));
        received.sender = sender.pid;
    }

    return true;
}

/** Forks with all signals blocked, so that no handler of this process runs in the guardian. */
pid_t forkGuardian(const GuardianPlan& plan)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);

    const auto pid = fork();

    if (pid == 0)
        runGuardian(plan);

    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return pid;
}

/** Waits until a child has ended and reaps it. False if it did not end in time. */
bool reapWithin(pid_t child, std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;
    std::chrono::microseconds pause{50};

    while (waitpid(child, nullptr, WNOHANG) == 0)
    {
        if (Clock::now() >= end)
            return false;

        std::this_thread::sleep_for(pause);
        pause = std::min<std::chrono::microseconds>(2 * pause, std::chrono::milliseconds(10));
    }

    return true;
}

ProgramEnd describeEnd(int status)
{
    if (!WIFSIGNALED(status))
        return {WEXITSTATUS(status), "exit status " + std::to_string(WEXITSTATUS(status))};

    const int number = WTERMSIG(status);
    const auto* const name = sigdescr_np(number);
    return {128 + number,
            "signal " + std::to_string(number) + " (" + (name != nullptr ? name : "?") + ")"};
}

StartFailure describeFailure(const GuardianReport& report, const ProgramStart& start)
{
    const auto text = ": " + describeSystemError(report.value);

    if (report.kind == Kind::folderFailed)
        return {false, "cannot enter the folder " + start.folder + text};

    if (report.kind == Kind::programFailed)
        return {false, "cannot run " + start.command.front() + text};

    return {true, "cannot contain the program" + text};
}

} // namespace

/** Makes a new control group, if the program is to be contained in one. */
bool ProcessTree::createGroup(GuardianPlan& plan)
{
    if (containment != Containment::cgroup)
        return true;

    groupPath = createControlGroup();
    groupFolder = Descriptor(open(groupPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    plan.groupPath = groupPath;
    plan.group = groupFolder.get();
    return groupFolder.get() >= 0;
}

bool ProcessTree::start(GuardianPlan& plan, const ProgramStart& start, StartFailure& failure)
{
    plan.containment = containment;
    plan.group = -1;

    if (!createGroup(plan))
        return false;

    std::array<int, 2> sockets{-1, -1};
    std::array<int, 2> pipe{-1, -1};
    const bool opened =
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) == 0 &&
        pipe2(pipe.data(), O_CLOEXEC) == 0;
    failure = {false, "cannot open a pipe: " + describeSystemError(errno)};
    control = Descriptor(sockets[0]);
    output = Descriptor(pipe[0]);
    const Descriptor guardiansControl(sockets[1]);
    const Descriptor guardiansOutput(pipe[1]);

    if (!opened)
        return false;

    constexpr int on = 1;
    setsockopt(control.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on));
    plan.control = guardiansControl.get();
    plan.output = guardiansOutput.get();
    guardian = forkGuardian(plan);

    if (guardian < 0)
    {
        failure = {false, "cannot start a process: " + describeSystemError(errno)};
        guardian = 0;
        return false;
    }

    groupFolder = {};
    return waitForStart(start, failure);
}

bool ProcessTree::waitForStart(const ProgramStart& start, StartFailure& failure)
{
    failure = {};

    for (ReceivedReport received; receive(control.get(), received);)
    {
        // The first process of a PID namespace takes the place of the one that was forked, which
        // has ended.
        if (const auto kind = received.report.kind;
            (kind == Kind::guardian || kind == Kind::notContained) && received.sender != guardian)
            waitpid(std::exchange(guardian, received.sender), nullptr, 0);

        switch (received.report.kind)
        {
            case Kind::guardian:
                break;

            case Kind::program:
                program = received.sender;
                break;

            case Kind::started:
                return true;

            default:
                failure = describeFailure(received.report, start);
                return false;
        }
    }

    return false;
}

bool ProcessTree::handleReport()
{
    ReceivedReport received;

    const bool isConnected = receive(control.get(), received);

    // The system kills the program with the guardian.
    if (!end && (!isConnected || received.report.kind == Kind::ended))
        end = describeEnd(isConnected ? received.report.value : SIGKILL);

    return isConnected;
}

void ProcessTree::kill()
{
    const auto deadline = Clock::now() + (isKilled ? 0ms : killLimit);
    const auto left = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    };

    isKilled = true;

    if (guardian != 0)
    {
        shutdown(control.get(), SHUT_WR);

        while (waitForInput(control.get(), left()) && handleReport())
        {}

        // The kernel ends a PID namespace with its guardian, which is reaped only after that.
        if (reapWithin(guardian, left()))
            guardian = 0;
    }

    // Usually the guardian has done that. It may have been killed, or never started.
    if (!groupPath.empty())
    {
        killControlGroup(groupPath);

        if (removeControlGroup(groupPath))
            groupPath.clear();
    }
}

void ProcessTree::sendSignal(int number)
{
    const auto byte = static_cast<uint8_t>(number);
    send(control.get(), &byte, sizeof(byte), MSG_NOSIGNAL);
}

std::optional<ProgramEnd> ProcessTree::waitForEnd(std::chrono::milliseconds limit)
{
    if (!end && waitForInput(control.get(), limit))
        handleReport();

    return end;
}

int ProcessTree::read(char* buffer, size_t size, std::chrono::milliseconds limit)
{
    if (!waitForInput(output.get(), limit))
        return 0;

    const auto count = ::read(output.get(), buffer, size);

    if (count < 0 && errno == EINTR)
        return 0;

    return count > 0 ? static_cast<int>(count) : -1;
}

} // namespace quelta::execslave
