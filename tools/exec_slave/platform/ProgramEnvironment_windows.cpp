#include "exec_slave/platform/ProgramEnvironment.h"

#include <windows.h>

#include <map>

#include "exec_slave/platform/ContainedProgram.h"
#include "exec_slave/platform/WideText.h"

namespace quelta::execslave {

namespace {

/** Names of variables have no case. Windows wants them in this order. */
struct NameOrder
{
    bool operator()(const std::wstring& left, const std::wstring& right) const
    {
        return CompareStringOrdinal(left.c_str(), -1, right.c_str(), -1, TRUE) == CSTR_LESS_THAN;
    }
};

using Variables = std::map<std::wstring, std::wstring, NameOrder>;

Variables makeEnvironment(const ProgramStart& start)
{
    Variables variables;
    auto* const inherited = GetEnvironmentStringsW();

    // The names of hidden variables, such as the current folder of a drive, begin with "=".
    for (const auto* entry = inherited; *entry != L'\0'; entry += wcslen(entry) + 1)
        if (const auto* const equals = wcschr(entry + 1, L'='); equals != nullptr)
            variables.emplace(std::wstring(entry, equals), equals + 1);

    FreeEnvironmentStringsW(inherited);

    for (const auto& [name, value] : start.environment)
        if (value.empty())
            variables.erase(toWide(name));
        else
            variables[toWide(name)] = toWide(value);

    return variables;
}

bool isFile(const std::wstring& path)
{
    const auto attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::wstring withExtension(const std::wstring& path)
{
    return !isFile(path) && isFile(path + L".exe") ? path + L".exe" : path;
}

bool isAbsolute(const std::wstring& path)
{
    return path.starts_with(L'\\') || path.starts_with(L'/') || path.substr(1, 1) == L":";
}

} // namespace

std::wstring makeEnvironmentBlock(const ProgramStart& start)
{
    std::wstring block;

    for (const auto& [name, value] : makeEnvironment(start))
        block.append(name).append(L"=").append(value).push_back(L'\0');

    block.push_back(L'\0');
    return block;
}

std::wstring chooseProgramPath(const ProgramStart& start)
{
    const auto name = toWide(start.command.empty() ? std::string() : start.command.front());

    if (name.find_first_of(L"\\/:") != std::wstring::npos)
        return withExtension(
            isAbsolute(name) || start.folder.empty() ? name : toWide(start.folder) + L"\\" + name);

    const auto variables = makeEnvironment(start);
    const auto path = variables.find(L"PATH");
    std::wstring found(32768, L'\0');
    const auto length =
        SearchPathW(path != variables.end() ? path->second.c_str() : L"", name.c_str(), L".exe",
                    static_cast<DWORD>(found.size()), found.data(), nullptr);
    return length > 0 && length < found.size() ? found.substr(0, length) : name;
}

std::string findProgram(const ProgramStart& start)
{
    const auto path = chooseProgramPath(start);
    return isFile(path) ? toUtf8(path) : std::string();
}

} // namespace quelta::execslave
