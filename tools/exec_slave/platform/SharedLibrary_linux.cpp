#include "exec_slave/platform/SharedLibrary.h"

#include <dlfcn.h>

namespace quelta::execslave::platform {

void* loadLibrary(const std::string& name, std::string& error)
{
    auto* const library = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);

    if (library == nullptr)
        error = dlerror();

    return library;
}

void* findFunction(void* library, const char* name)
{
    return dlsym(library, name);
}

} // namespace quelta::execslave::platform
