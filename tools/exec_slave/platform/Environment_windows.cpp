#include <juce_core/juce_core.h>
#include <windows.h>

#include "exec_slave/platform/Environment.h"

namespace quelta::execslave {

std::optional<std::string> readEnvironment(const char* name)
{
    const juce::String wideName(name);
    std::wstring value(32767, L'\0'); // the system's limit
    SetLastError(ERROR_SUCCESS);
    const auto length = GetEnvironmentVariableW(wideName.toWideCharPointer(), value.data(),
                                                static_cast<DWORD>(value.size()));

    if (length == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND)
        return std::nullopt;

    value.resize(length);
    return juce::String(value.c_str()).toStdString();
}

} // namespace quelta::execslave
