#include "exec_slave/platform/ContainedProgram.h"

#include <windows.h>

#include <array>
#include <utility>
#include <vector>

#include "exec_slave/platform/OutputPipe.h"
#include "exec_slave/platform/ProgramEnvironment.h"
#include "exec_slave/platform/SystemError.h"
#include "exec_slave/platform/WideText.h"

namespace quelta::execslave {

namespace {

constexpr DWORD killLimitMs = 5000;

/** A handle that closes itself. */
class Handle
{
public:
    Handle() = default;
    explicit Handle(HANDLE openHandle) : handle(openHandle) {}
    ~Handle() { reset(); }

    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HANDLE get() const { return handle; }

    void reset(HANDLE other = nullptr)
    {
        if (handle != nullptr && handle != INVALID_HANDLE_VALUE)
            CloseHandle(handle);

        handle = other;
    }

private:
    HANDLE handle = nullptr;
};

/** Its members die when its only handle is closed, which the system does if this process dies. They
    cannot leave it. */
HANDLE createJob()
{
    auto* const job = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    return job;
}

HANDLE openNothing()
{
    SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
    return CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                       OPEN_EXISTING, 0, nullptr);
}

/** Start-up information that lets a program inherit its standard streams and no other handle. */
class StartupInformation
{
public:
    StartupInformation(HANDLE input, HANDLE output) : handles{input, output}
    {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        memory.resize(size);
        information.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
        InitializeProcThreadAttributeList(information.lpAttributeList, 1, 0, &size);
        UpdateProcThreadAttribute(information.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                  handles.data(), sizeof(handles), nullptr, nullptr);

        information.StartupInfo.cb = sizeof(information);
        information.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        information.StartupInfo.hStdInput = input;
        information.StartupInfo.hStdOutput = output;
        information.StartupInfo.hStdError = output;
    }

    ~StartupInformation() { DeleteProcThreadAttributeList(information.lpAttributeList); }

    StartupInformation(const StartupInformation&) = delete;
    StartupInformation& operator=(const StartupInformation&) = delete;

    STARTUPINFOW* get() { return &information.StartupInfo; }

private:
    std::array<HANDLE, 2> handles;
    std::vector<char> memory;
    STARTUPINFOEXW information{};
};

ProgramEnd describeEnd(DWORD exitCode)
{
    // From here on exit codes are NTSTATUS codes of fatal exceptions, usually written in
    // hexadecimal.
    constexpr DWORD firstFault = 0x80000000;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), exitCode < firstFault ? "%lu" : "0x%lX", exitCode);
    return {static_cast<int>(exitCode), std::string("exit status ") + text.data()};
}

} // namespace

struct ContainedProgram::Tree
{
    /** Starts the program, suspended until it is in the job. Returns what went wrong, or an empty
        string. */
    std::string begin(const ProgramStart& start);

    bool isAnyRunning() const
    {
        JOBOBJECT_BASIC_ACCOUNTING_INFORMATION information{};
        return QueryInformationJobObject(job.get(), JobObjectBasicAccountingInformation,
                                         &information, sizeof(information), nullptr) != FALSE &&
               information.ActiveProcesses > 0;
    }

    Handle job{createJob()};
    Handle process;
    DWORD id = 0;
    OutputPipe output;
};

std::string ContainedProgram::Tree::begin(const ProgramStart& start)
{
    const auto fail = [](const std::string& what) {
        return what + ": " + describeSystemError(getLastSystemError());
    };

    if (!output.isOpen())
        return fail("cannot open a pipe");

    const auto folder = toWide(start.folder);

    if (!folder.empty() && GetFileAttributesW(folder.c_str()) == INVALID_FILE_ATTRIBUTES)
        return fail("cannot enter the folder " + start.folder);

    const auto path = chooseProgramPath(start);
    auto commandLine = joinCommandLine(start.command);
    auto environment = makeEnvironmentBlock(start);
    const Handle input(openNothing());
    StartupInformation startup(input.get(), output.getWriteEnd());
    PROCESS_INFORMATION created{};
    constexpr DWORD flags = CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP |
                            CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT;

    if (CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, TRUE, flags,
                       environment.data(), folder.empty() ? nullptr : folder.c_str(), startup.get(),
                       &created) == FALSE)
        return fail("cannot run " + start.command.front());

    process.reset(created.hProcess);
    id = created.dwProcessId;
    const Handle thread(created.hThread);

    if (AssignProcessToJobObject(job.get(), process.get()) == FALSE)
    {
        const auto error = fail("cannot contain the program");
        TerminateProcess(process.get(), 1);
        return error;
    }

    output.closeWriteEnd();
    ResumeThread(thread.get());
    return {};
}

ContainedProgram::ContainedProgram(std::unique_ptr<Tree> startedTree) : tree(std::move(startedTree))
{}

ContainedProgram::~ContainedProgram()
{
    kill();
}

std::unique_ptr<ContainedProgram> ContainedProgram::start(const ProgramStart& start,
                                                          std::string& error)
{
    auto tree = std::make_unique<Tree>();
    error = tree->begin(start);

    if (!error.empty())
        return nullptr;

    return std::unique_ptr<ContainedProgram>(new ContainedProgram(std::move(tree)));
}

uint32_t ContainedProgram::getId() const
{
    return tree->id;
}

Containment ContainedProgram::getContainment() const
{
    return Containment::job;
}

int ContainedProgram::read(char* buffer, size_t size, std::chrono::milliseconds limit)
{
    return tree->output.read(buffer, size, limit);
}

std::optional<ProgramEnd> ContainedProgram::waitForEnd(std::chrono::milliseconds limit)
{
    DWORD exitCode = 0;

    if (WaitForSingleObject(tree->process.get(), static_cast<DWORD>(limit.count())) !=
            WAIT_OBJECT_0 ||
        GetExitCodeProcess(tree->process.get(), &exitCode) == FALSE)
        return {};

    return describeEnd(exitCode);
}

void ContainedProgram::requestEnd(const std::string&)
{
    if (!waitForEnd(std::chrono::milliseconds(0)))
        GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, tree->id);
}

void ContainedProgram::kill()
{
    TerminateJobObject(tree->job.get(), 1);
    WaitForSingleObject(tree->process.get(), killLimitMs);

    // The job has no event for its last end.
    for (DWORD waited = 0; tree->isAnyRunning() && waited < killLimitMs; ++waited)
        Sleep(1);
}

Containment findContainment()
{
    return Containment::job;
}

} // namespace quelta::execslave
