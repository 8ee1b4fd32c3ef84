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

constexpr juce::uint32 longestReapMs = 500;

/** Children that were killed but had not ended in time, such as one stuck in a driver. */
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

/** What the process inherited, such as nohup's SIGHUP; read before main, which ignores more. */
const sigset_t ignoredAtStart = findIgnoredSignals();

/** Everything that the child needs between fork and exec, where nothing may be allocated. */
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
    int highestDescriptor = static_cast<int>(sysconf(_SC_OPEN_MAX));
    int errorPipe = -1; ///< Closed by a successful exec; otherwise carries the error number.
};

void closeOnExecAboveStandardStreams(int highestDescriptor)
{
    if (syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0)
        return;

    for (int descriptor = STDERR_FILENO + 1; descriptor < highestDescriptor; ++descriptor)
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

/** Undoes what this process and JUCE have set. A signal that was ignored from the start stays
    ignored: under nohup the slave survives a hang-up as the daemon does. */
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

/** The child's side of the fork: async-signal-safe calls only, and nothing written to but this
    frame, since the memory is still the daemon's. A frame of its own for the same reason. */
[[noreturn, gnu::noinline]] void becomeSlave(const ChildPlan& plan, const sigset_t& mask)
{
    restoreInheritedSignals(mask);
    closeOnExecAboveStandardStreams(plan.highestDescriptor);
    prctl(PR_SET_PDEATHSIG, SIGKILL);

    // The daemon may have died before the request above.
    if (getppid() != plan.parent)
        _exit(0);

    if (chdir(plan.folder.c_str()) == 0)
        execv(plan.path.c_str(), plan.argv.data());

    const int error = errno;
    [[maybe_unused]] const auto written = write(plan.errorPipe, &error, sizeof(error));
    _exit(127);
}

/** The number that a failed exec reported, or 0 once exec has closed the pipe. */
int readExecError(int pipe)
{
    int error = 0;
    ssize_t count = 0;

    do
        count = read(pipe, &error, sizeof(error));
    while (count < 0 && errno == EINTR);

    return count == static_cast<ssize_t>(sizeof(error)) ? error : 0;
}

/** Forks with every signal blocked, so that no handler of the daemon runs in the child. By vfork,
    which lets the child borrow the memory until it has its own: a copy of what the threads of a
    thousand connections have mapped would take 50 ms, and hold all of them up. */
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

/** Reaps the child if it has ended; `status` is then what waitpid tells, or stays as it is if somebody else
 * has reaped it. */
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
    pid_t pid = 0;  ///< 0 when there is no child that still has to be waited for.
    pid_t id = 0;   ///< The same, kept for the log.
    int status = 0; ///< As waitpid told it, once the child has ended.
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
    return 0; // the child has asked for its parent-death signal itself
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

    while (isRunning() && juce::Time::getMillisecondCounter() - killedAt < longestReapMs)
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
