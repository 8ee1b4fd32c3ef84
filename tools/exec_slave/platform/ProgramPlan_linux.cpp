#include "exec_slave/platform/ProgramPlan.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>

namespace quelta::execslave {

namespace {

std::map<std::string, std::string> makeEnvironment(const ProgramStart& start)
{
    std::map<std::string, std::string> variables;

    for (char** entry = environ; *entry != nullptr; ++entry)
        if (const auto* const equals = std::strchr(*entry, '='))
            variables.emplace(std::string(*entry, static_cast<size_t>(equals - *entry)),
                              equals + 1);

    for (const auto& [name, value] : start.environment)
        if (value.empty())
            variables.erase(name);
        else
            variables[name] = value;

    return variables;
}

/** The files that a program's name may mean, in the order of PATH. */
std::vector<std::string> listCandidates(const ProgramStart& start)
{
    const auto& name = start.command.empty() ? std::string() : start.command.front();

    if (name.empty() || name.find('/') != std::string::npos)
        return {name};

    const auto variables = makeEnvironment(start);
    const auto found = variables.find("PATH");
    const std::string path =
        found != variables.end() ? found->second : "/usr/local/bin:/usr/bin:/bin";
    std::vector<std::string> candidates;

    for (size_t begin = 0; begin <= path.size();)
    {
        const auto end = std::min(path.find(':', begin), path.size());

        if (end > begin)
            candidates.push_back(path.substr(begin, end - begin) + "/" + name);

        begin = end + 1;
    }

    return candidates;
}

std::string inFolder(const std::string& folder, const std::string& path)
{
    return folder.empty() || path.starts_with('/') ? path : folder + "/" + path;
}

/** The file to run, relative to the program's folder: the first executable one, else the first one
    that exists, for which the system then says why it cannot be run, else any. */
std::string choosePath(const ProgramStart& start)
{
    const auto candidates = listCandidates(start);

    for (const int mode : {X_OK, F_OK})
        for (const auto& candidate : candidates)
            if (access(inFolder(start.folder, candidate).c_str(), mode) == 0)
                return candidate;

    return candidates.empty() ? "/" + start.command.front() : candidates.back();
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;

    for (auto& text : texts)
        pointers.push_back(text.data());

    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

ProgramPlan::ProgramPlan(const ProgramStart& start) : arguments(start.command)
{
    for (const auto& [name, value] : makeEnvironment(start))
        environment.push_back(name + "=" + value);

    guardian.path = choosePath(start);
    guardian.folder = start.folder;
    guardian.arguments = pointersTo(arguments);
    guardian.environment = pointersTo(environment);
}

std::string findProgram(const ProgramStart& start)
{
    const auto path = inFolder(start.folder, choosePath(start));
    return access(path.c_str(), X_OK) == 0 ? path : std::string();
}

} // namespace quelta::execslave
