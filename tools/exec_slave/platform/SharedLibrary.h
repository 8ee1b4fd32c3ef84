// Shared libraries that are loaded at run time.
#pragma once

#include <string>

namespace quelta::execslave::platform {

/** Loads a library by its path, or by its name as the system searches it. Returns null, with the
    reason in `error`, if it cannot be loaded. */
void* loadLibrary(const std::string& name, std::string& error);

/** Null if the library has no such function. */
void* findFunction(void* library, const char* name);

} // namespace quelta::execslave::platform
