// A running program with all of its descendants, also those that left its process group or session.
// They end with this object, and if this process dies.
//
// One thread may read the output while another makes all other calls.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "exec_slave/ProgramStart.h"

namespace quelta::execslave {

/** How the process tree is held together. The README describes each. */
enum class Containment
{
    job,          ///< Windows: a job object.
    cgroup,       ///< Linux: a control group of its own.
    pidNamespace, ///< Linux: a PID namespace.
    subreaper     ///< Linux: process group, parent-death signal and sub-reaper.
};

/** The best way that this process may use now. */
Containment findContainment();

/** Its name for --check and logs, such as "control group". */
const char* describe(Containment containment);

/** Returns the file that a start would run: a name without a slash is looked up in the PATH of the
    program's environment, a relative path starts from the program's folder. Empty if there is no
    such file. */
std::string findProgram(const ProgramStart& start);

struct ProgramEnd
{
    int status = 0;   ///< The exit status, or 128 plus the signal's number.
    std::string text; ///< Such as "exit status 3" or "signal 9 (Killed)".
};

class ContainedProgram
{
public:
    /** Starts the program with an empty standard input; its standard output and error go to
        read(). Returns null if it cannot be started, with a text in `error` such as
        "cannot run blender: No such file or directory". */
    static std::unique_ptr<ContainedProgram> start(const ProgramStart& start, std::string& error);

    /** Kills what is left of the tree and waits until it is gone. */
    ~ContainedProgram();

    ContainedProgram(const ContainedProgram&) = delete;
    ContainedProgram& operator=(const ContainedProgram&) = delete;

    /** The program's process ID as this process sees it. */
    uint32_t getId() const;

    /** How this program is contained. */
    Containment getContainment() const;

    /** Waits up to `limit` for output. Returns the number of bytes, 0 if none came in time, -1 at
        the end of the output. */
    int read(char* buffer, size_t size, std::chrono::milliseconds limit);

    /** Waits up to `limit` for the program (not its descendants) to end. */
    std::optional<ProgramEnd> waitForEnd(std::chrono::milliseconds limit);

    /** Asks the program's process group to end. Linux: the signal, such as "TERM", which is also
        sent if the name is unknown. Windows: Ctrl-Break, whatever the name. No-op once the program
        has ended. */
    void requestEnd(const std::string& signal);

    /** Kills the whole tree and waits until it is gone, but at most 5 s: a process that waits for
        a driver cannot be killed before the driver answers. Idempotent. */
    void kill();

private:
    struct Tree;

    explicit ContainedProgram(std::unique_ptr<Tree> startedTree);

    const std::unique_ptr<Tree> tree;
};

} // namespace quelta::execslave
