#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "util/CommandLineSplitter.h"

namespace quelta::platform {

namespace {

constexpr juce::uint32 reapTimeoutMs = 500;

/** Killed children that did not end before the time-out, for example because a driver blocks
    them. */
struct KilledChildren
{
    juce::CriticalSection lock; ///< Guards `pids`.
    std::vector<pid_t> pids;
};

KilledChildren& getKilledChildren()
{
    static auto* const children = new KilledChildren;
    return *children;
}

sigset_t findIgnoredSignals() noexcept
{
    sigset_t ignored;
    sigemptyset(&ignored);

    for (int number = 1; number < NSIG; ++number)
    {
        struct sigaction action = {};

        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
            sigaddset(&ignored, number);
    }

    return ignored;
}

/** The signals that were ignored when the process started, such as nohup's SIGHUP. Read before
    main, which ignores more. */
const sigset_t ignoredAtStart = findIgnoredSignals();

/** Everything that the child needs between fork and exec, where it must not allocate. */
struct ChildPlan
{
    ChildPlan(const juce::File& executable, const juce::String& commandLine)
        : path(executable.getFullPathName().toStdString()),
          folder(executable.getParentDirectory().getFullPathName().toStdString()),
          arguments(splitCommandLine(commandLine.toRawUTF8()))
    {
        for (auto& argument : arguments)
            argv.push_back(argument.data());

        argv.push_back(nullptr);
    }

    std::string path;
    std::string folder;
    std::vector<std::string> arguments;
    std::vector<char*> argv;
    pid_t parent = getpid();
    int maxDescriptors = static_cast<int>(sysconf(_SC_OPEN_MAX));
    int errorPipe = -1; ///< Carries the error number of a failed exec; a successful exec closes it.
};

void closeOnExecAboveStandardStreams(int maxDescriptors)
{
    if (syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0)
        return;

    for (int descriptor = STDERR_FILENO + 1; descriptor < maxDescriptors; ++descriptor)
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

/** Undoes the signal handling of this process and of JUCE. Signals that were ignored from the
    start stay ignored: under nohup the slave survives a hang-up, like the daemon. */
void restoreInheritedSignals(const sigset_t& mask)
{
    for (int number = 1; number < NSIG; ++number)
    {
        struct sigaction action = {};
        action.sa_handler = sigismember(&ignoredAtStart, number) == 1 ? SIG_IGN : SIG_DFL;
        sigaction(number, &action, nullptr);
    }

    sigprocmask(SIG_SETMASK, &mask, nullptr);
}

/** Runs in the child after vfork, which shares the daemon's memory: makes async-signal-safe calls
    only. noinline: the child may write only to its own frame. */
[[noreturn, gnu::noinline]] void becomeSlave(const ChildPlan& plan, const sigset_t& mask)
{
    restoreInheritedSignals(mask);
    closeOnExecAboveStandardStreams(plan.maxDescriptors);
    prctl(PR_SET_PDEATHSIG, SIGKILL);

    // The daemon may have died before prctl: no signal will arrive.
    if (getppid() != plan.parent)
        _exit(0);

    if (chdir(plan.folder.c_str()) == 0)
        execv(plan.path.c_str(), plan.argv.data());

    const int error = errno;
    [[maybe_unused]] const auto written = write(plan.errorPipe, &error, sizeof(error));
    _exit(127);
}

/** Waits for exec. Returns 0, or the error number with which exec failed. */
int readExecError(int pipe)
{
    int error = 0;
    ssize_t count = 0;

    do
        count = read(pipe, &error, sizeof(error));
    while (count < 0 && errno == EINTR);

    return count == static_cast<ssize_t>(sizeof(error)) ? error : 0;
}

/** Forks with all signals blocked, so that no handler of the daemon runs in the child. vfork
    shares the memory until exec: with a thousand connection threads, fork would stall them all for
    50 ms while it copies the page tables. */
pid_t forkWithSignalsBlocked(const ChildPlan& plan, int& error)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);

    const auto pid = vfork();

    if (pid == 0)
        becomeSlave(plan, before); // NOLINT(clang-analyzer-unix.Vfork)

    error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return pid;
}

/** Reaps the child if it has ended. Sets `status` to waitpid's, or leaves it unchanged if the
    child has already been reaped elsewhere. */
bool reap(pid_t pid, int& status)
{
    const auto result = waitpid(pid, &status, WNOHANG);
    return result == pid || (result < 0 && errno == ECHILD);
}

bool hasEnded(pid_t pid)
{
    int status = 0;
    return reap(pid, status);
}

} // namespace

struct ChildProcess::Handle
{
    pid_t pid = 0;  ///< 0 if there is no child to reap.
    pid_t id = 0;   ///< The child's PID even after it has been reaped, for logs.
    int status = 0; ///< From waitpid, once the child has ended.
};

ChildProcess::ChildProcess() : handle(std::make_unique<Handle>()) {}

ChildProcess::~ChildProcess()
{
    if (isRunning())
        kill();
}

int ChildProcess::launch(const juce::File& executable, const juce::String& commandLine)
{
    reapKilledChildren();

    ChildPlan plan(executable, commandLine);
    int pipe[2];

    if (pipe2(pipe, O_CLOEXEC) != 0)
        return errno;

    plan.errorPipe = pipe[1];
    int error = 0;
    const auto pid = forkWithSignalsBlocked(plan, error);
    close(pipe[1]);

    if (pid > 0)
    {
        error = readExecError(pipe[0]);

        if (error == 0)
            handle->pid = handle->id = pid;
        else
            waitpid(pid, nullptr, 0);
    }

    close(pipe[0]);
    return error;
}

int ChildProcess::getJobError() const
{
    return 0; // there are no jobs; the child has requested its parent-death signal
}

bool ChildProcess::isRunning()
{
    if (handle->pid != 0 && reap(handle->pid, handle->status))
        handle->pid = 0;

    return handle->pid != 0;
}

uint32_t ChildProcess::getId() const
{
    return static_cast<uint32_t>(handle->id);
}

std::string ChildProcess::describeEnd() const
{
    if (!WIFSIGNALED(handle->status))
        return "exit status " + std::to_string(WEXITSTATUS(handle->status));

    const auto* const name = sigdescr_np(WTERMSIG(handle->status));
    return "signal " + std::to_string(WTERMSIG(handle->status)) + " (" +
           (name != nullptr ? name : "?") + ")";
}

void ChildProcess::kill()
{
    if (handle->pid == 0)
        return;

    ::kill(handle->pid, SIGKILL);

    const auto killedAt = juce::Time::getMillisecondCounter();

    while (isRunning() && juce::Time::getMillisecondCounter() - killedAt < reapTimeoutMs)
        juce::Thread::sleep(1);

    if (handle->pid == 0)
        return;

    auto& killed = getKilledChildren();
    const juce::ScopedLock sl(killed.lock);
    killed.pids.push_back(handle->pid);
    handle->pid = 0;
}

void reapKilledChildren()
{
    auto& killed = getKilledChildren();
    const juce::ScopedLock sl(killed.lock);
    killed.pids.erase(std::remove_if(killed.pids.begin(), killed.pids.end(), hasEnded),
                      killed.pids.end());
}

} // namespace quelta::platform
