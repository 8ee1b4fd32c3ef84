#include "exec_slave/platform/ContainedProgram.h"

#include <array>
#include <csignal>
#include <cstring>
#include <utility>

#include "exec_slave/platform/ProcessTree.h"
#include "exec_slave/platform/ProgramPlan.h"

namespace quelta::execslave {

namespace {

/** From the best to the last resort. */
constexpr std::array ways{Containment::cgroup, Containment::pidNamespace, Containment::subreaper};

int findSignal(const std::string& name)
{
    for (int number = 1; number < NSIG; ++number)
        if (const auto* const known = sigabbrev_np(number); known != nullptr && name == known)
            return number;

    return SIGTERM;
}

} // namespace

struct ContainedProgram::Tree : ProcessTree
{
    using ProcessTree::ProcessTree;
};

ContainedProgram::ContainedProgram(std::unique_ptr<Tree> startedTree) : tree(std::move(startedTree))
{}

ContainedProgram::~ContainedProgram() = default;

std::unique_ptr<ContainedProgram> ContainedProgram::start(const ProgramStart& start,
                                                          std::string& error)
{
    ProgramPlan plan(start);

    for (const auto way : ways)
    {
        auto tree = std::make_unique<Tree>(way);
        StartFailure failure;

        if (tree->start(plan.guardian, start, failure))
        {
            error.clear();
            return std::unique_ptr<ContainedProgram>(new ContainedProgram(std::move(tree)));
        }

        error = failure.text;

        if (!failure.isContainment)
            break;
    }

    return nullptr;
}

uint32_t ContainedProgram::getId() const
{
    return static_cast<uint32_t>(tree->getProgram());
}

Containment ContainedProgram::getContainment() const
{
    return tree->getContainment();
}

int ContainedProgram::read(char* buffer, size_t size, std::chrono::milliseconds limit)
{
    return tree->read(buffer, size, limit);
}

std::optional<ProgramEnd> ContainedProgram::waitForEnd(std::chrono::milliseconds limit)
{
    return tree->waitForEnd(limit);
}

void ContainedProgram::requestEnd(const std::string& signal)
{
    tree->sendSignal(findSignal(signal));
}

void ContainedProgram::kill()
{
    tree->kill();
}

Containment findContainment()
{
    for (const auto way : ways)
    {
        ProgramPlan nothing;
        StartFailure failure;

        if (ProcessTree(way).start(nothing.guardian, {}, failure))
            return way;
    }

    return Containment::subreaper;
}

} // namespace quelta::execslave
