#include "exec_slave/platform/Guardian.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/sched.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "exec_slave/platform/ControlGroup.h"

namespace quelta::execslave {

namespace {

using Kind = GuardianReport::Kind;

void report(const GuardianPlan& plan, Kind kind, int value = 0)
{
    const GuardianReport message{kind, value};
    send(plan.control, &message, sizeof(message), MSG_NOSIGNAL);
}

[[noreturn]] void refuse(const GuardianPlan& plan)
{
    report(plan, Kind::notContained, errno);
    _exit(1);
}

void closeRange(int first, int last)
{
    if (first > last || syscall(SYS_close_range, first, last, 0) == 0)
        return;

    const auto end = std::min<long>(last, sysconf(_SC_OPEN_MAX));

    for (int descriptor = first; descriptor <= end; ++descriptor)
        close(descriptor);
}

/** Closes what belongs to the exec slave, such as its connection to the daemon. */
void closeInheritedDescriptors(const GuardianPlan& plan)
{
    std::array kept{STDERR_FILENO, plan.control, plan.output, std::max(plan.group, STDERR_FILENO)};
    std::sort(kept.begin(), kept.end());

    for (size_t i = 0; i + 1 < kept.size(); ++i)
        closeRange(kept[i] + 1, kept[i + 1] - 1);

    closeRange(kept.back() + 1, std::numeric_limits<int>::max());

    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);

    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, standard);

    close(nothing);
}

bool writeFile(const char* path, const std::string& text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const auto written = write(file, text.data(), text.size());
    close(file);
    return written == static_cast<ssize_t>(text.size());
}

/** The user and the group keep their numbers; all others appear as nobody. */
bool mapThisUser(uid_t user, gid_t group)
{
    const auto line = [](auto id) { return std::to_string(id) + " " + std::to_string(id) + " 1"; };
    return writeFile("/proc/self/setgroups", "deny") &&
           writeFile("/proc/self/uid_map", line(user)) &&
           writeFile("/proc/self/gid_map", line(group));
}

/** Continues in a new process, the first of a PID namespace and a child of the exec slave. Mounts
    /proc anew, or the program would find wrong processes in it. */
void enterPidNamespace(const GuardianPlan& plan)
{
    const auto user = geteuid();
    const auto group = getegid();

    if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0 &&
        (unshare(CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNS) != 0 || !mapThisUser(user, group)))
        refuse(plan);

    const auto pid = syscall(SYS_clone, CLONE_PARENT | SIGCHLD, 0, 0, 0, 0);

    if (pid < 0)
        refuse(plan);

    if (pid > 0)
        _exit(0);

    if (mount("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0 ||
        mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
        refuse(plan);
}

void setUpContainment(const GuardianPlan& plan)
{
    prctl(PR_SET_NAME, "guardian");
    std::signal(SIGCHLD, SIG_DFL); // the kernel reaps children if it is ignored

    if (plan.containment == Containment::pidNamespace)
        enterPidNamespace(plan);
    else if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0)
        refuse(plan);

    setsid(); // a signal to the exec slave's process group or terminal must not end the guardian
}

void restoreSignals()
{
    for (int number = 1; number < NSIG; ++number)
    {
        struct sigaction action = {};
        action.sa_handler = SIG_DFL;
        sigaction(number, &action, nullptr);
    }

    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

/** Runs in the program's process. */
[[noreturn]] void becomeProgram(const GuardianPlan& plan, pid_t guardian)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);

    if (getppid() != guardian)
        _exit(1);

    setpgid(0, 0);
    report(plan, Kind::program);
    dup2(plan.output, STDOUT_FILENO);
    dup2(plan.output, STDERR_FILENO);
    restoreSignals();

    if (plan.path.empty())
        _exit(0);

    if (!plan.folder.empty() && chdir(plan.folder.c_str()) != 0)
    {
        report(plan, Kind::folderFailed, errno);
        _exit(127);
    }

    execve(plan.path.c_str(), plan.arguments.data(), plan.environment.data());
    report(plan, Kind::programFailed, errno);
    _exit(127);
}

/** Returns once the program runs or has failed to. */
pid_t startProgram(const GuardianPlan& plan)
{
    const auto guardian = getpid();
    long pid = -1;

    if (plan.containment == Containment::cgroup)
    {
        // Moving a process afterwards would take milliseconds: the kernel waits for all processors.
        clone_args arguments{};
        arguments.flags = CLONE_VFORK | CLONE_INTO_CGROUP;
        arguments.exit_signal = SIGCHLD;
        arguments.cgroup = static_cast<uint64_t>(plan.group);
        pid = syscall(SYS_clone3, &arguments, sizeof(arguments));
    }
    else
        pid = syscall(SYS_clone, CLONE_VFORK | SIGCHLD, 0, 0, 0, 0);

    if (pid < 0)
        refuse(plan);

    if (pid == 0)
        becomeProgram(plan, guardian);

    return static_cast<pid_t>(pid);
}

/** Reaps all ended children. False if there are no children left. */
bool reapChildren(const GuardianPlan& plan, pid_t& program)
{
    for (;;)
    {
        int status = 0;
        const auto pid = waitpid(-1, &status, WNOHANG);

        if (pid <= 0)
            return pid == 0;

        if (pid == program)
        {
            report(plan, Kind::ended, status);
            program = 0;
        }
    }
}

/** Kills all children, adopted ones included. */
void killChildren()
{
    const int file = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    std::array<char, 4096> text{};

    // Ends with a blank after each number. What does not fit is killed in the next round.
    const auto size = read(file, text.data(), text.size() - 1);
    close(file);

    for (char* at = text.data(); size > 0 && *at != '\0';)
    {
        char* end = nullptr;
        const auto pid = static_cast<pid_t>(std::strtol(at, &end, 10));

        if (end == at || *end != ' ')
            break;

        kill(pid, SIGKILL);
        at = end + 1;
    }
}

/** Kills the tree. A child that is reaped has left its own children to this process, so the end of
    the last child is the end of the tree. */
void killTree(const GuardianPlan& plan, pid_t program, int signals)
{
    int waitMs = 1;

    for (;;)
    {
        if (plan.containment == Containment::pidNamespace)
            kill(-1, SIGKILL);
        else if (plan.containment == Containment::cgroup)
            killControlGroup(plan.groupPath);

        killChildren();

        if (!reapChildren(plan, program))
            break;

        // A process that waits for a driver cannot be killed yet.
        pollfd ended{signals, POLLIN, 0};
        poll(&ended, 1, waitMs);
        signalfd_siginfo information{};
        [[maybe_unused]] const auto count = read(signals, &information, sizeof(information));
        waitMs = std::min(2 * waitMs, 1000);
    }

    if (plan.containment == Containment::cgroup)
        removeControlGroup(plan.groupPath);
}

} // namespace

void runGuardian(const GuardianPlan& plan)
{
    closeInheritedDescriptors(plan);
    setUpContainment(plan);

    sigset_t childEnds;
    sigemptyset(&childEnds);
    sigaddset(&childEnds, SIGCHLD);
    const int signals = signalfd(-1, &childEnds, SFD_CLOEXEC | SFD_NONBLOCK);

    report(plan, Kind::guardian);
    auto program = startProgram(plan);
    close(plan.output);
    [[maybe_unused]] const auto left = chdir("/"); // only the program may keep its folder in use
    report(plan, Kind::started);

    for (;;)
    {
        std::array<pollfd, 2> events{pollfd{plan.control, POLLIN, 0}, pollfd{signals, POLLIN, 0}};
        poll(events.data(), events.size(), -1);

        if (events[0].revents != 0)
        {
            uint8_t number = 0;

            if (recv(plan.control, &number, sizeof(number), 0) <= 0)
                break;

            if (program > 0)
                kill(-program, number);
        }

        if (events[1].revents != 0)
        {
            signalfd_siginfo information{};
            [[maybe_unused]] const auto count = read(signals, &information, sizeof(information));
            reapChildren(plan, program);
        }
    }

    killTree(plan, program, signals);
    _exit(0);
}

} // namespace quelta::execslave
