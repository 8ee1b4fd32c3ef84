// Linux: a guardian with the program and its descendants, in one way of containment.
//
// ContainedProgram says which thread may call what.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include <unistd.h>

#include "exec_slave/platform/ContainedProgram.h"
#include "exec_slave/platform/Guardian.h"

namespace quelta::execslave {

/** A descriptor that closes itself. */
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int openDescriptor) : descriptor(openDescriptor) {}
    ~Descriptor() { reset(); }

    Descriptor(Descriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}

    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(descriptor, other.descriptor);
        return *this;
    }

    int get() const { return descriptor; }

    void reset()
    {
        if (descriptor >= 0)
            close(std::exchange(descriptor, -1));
    }

private:
    int descriptor = -1;
};

/** Why a program could not be started. */
struct StartFailure
{
    bool isContainment = true; ///< Another way of containment may do.
    std::string text;
};

class ProcessTree
{
public:
    explicit ProcessTree(Containment way) : containment(way) {}
    ~ProcessTree() { kill(); }

    ProcessTree(const ProcessTree&) = delete;
    ProcessTree& operator=(const ProcessTree&) = delete;

    /** Starts the guardian and, through it, the program. Called once. */
    bool start(GuardianPlan& plan, const ProgramStart& start, StartFailure& failure);

    /** The first call waits until the tree is gone, up to a limit. */
    void kill();

    void sendSignal(int number);
    std::optional<ProgramEnd> waitForEnd(std::chrono::milliseconds limit);
    int read(char* buffer, size_t size, std::chrono::milliseconds limit);

    Containment getContainment() const { return containment; }
    pid_t getProgram() const { return program; }

private:
    bool createGroup(GuardianPlan& plan);
    bool waitForStart(const ProgramStart& start, StartFailure& failure);
    bool handleReport();

    const Containment containment;
    Descriptor control; ///< The socket to the guardian.
    Descriptor output;
    pid_t guardian = 0; ///< 0 once it has been reaped.
    pid_t program = 0;
    bool isKilled = false;
    std::string groupPath;  ///< The folder of the control group; empty without one.
    Descriptor groupFolder; ///< Open until the program has started.
    std::optional<ProgramEnd> end;
};

} // namespace quelta::execslave
