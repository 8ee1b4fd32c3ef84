#include "exec_slave/platform/SharedLibrary.h"

#include <juce_core/juce_core.h>

#include <windows.h>

namespace quelta::execslave::platform {

void* loadLibrary(const std::string& name, std::string& error)
{
    const auto path = juce::String::fromUTF8(name.c_str());
    // A library that it needs is searched beside it, not beside this program.
    auto* const library =
        LoadLibraryExW(path.toWideCharPointer(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);

    if (library == nullptr)
        error = name + ": cannot be loaded: error " + std::to_string(GetLastError());

    return library;
}

void* findFunction(void* library, const char* name)
{
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

} // namespace quelta::execslave::platform
