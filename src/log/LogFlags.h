// The log flags: named integers that code tests before it logs. Users set them in a text file
// beside the executable; a registry finds them by name.
//
// Flags are registered before main and written only while logging starts, so reading a flag takes
// no lock. The functions below are called under the log lock (see Log.h) or before other threads
// exist.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

namespace quelta {

/** The flags. They need a namespace because POSIX declares a function called daemon. */
namespace flags {

extern int32_t logAppendToFile;
extern int32_t logFlags;
extern int32_t logForceFlush; ///< Flushes the log file every so many lines; 0: never.
extern int32_t logFlushTime;  ///< Flushes the log file every so many milliseconds; 0: never.
extern int32_t logJuce;
extern int32_t logToStdout; ///< 1: standard output, 2: standard error.
extern int32_t logToDebugConsole;
extern int32_t logToFile;
extern int32_t logTime;
extern int32_t logPrefix;
extern int32_t daemon;
extern int32_t daemonDetail;

} // namespace flags

enum class LogFlagType : int32_t
{
    debug = 0,
    release = 1,
    perf = 2
};

/** A record of the registry. Code that tests a flag reads its variable, not the record. */
struct LogFlag
{
    std::string name;
    int32_t* value = nullptr;
    std::string prefix; ///< With its quotes, at most 12 characters.
    std::string description;
    LogFlagType type = LogFlagType::release;
};

/** Name to record, in ascending byte order. */
using LogFlagRegistry = std::map<std::string, LogFlag>;

/** Name to value, as found in a flags file; the first value of a name that occurs repeatedly. */
using LogFlagFileSettings = std::map<std::string, int32_t>;

/** Registers a flag and replaces an earlier one of that name. `prefix` includes its double quotes.
    Returns 0, the initial value of the flag's variable. */
int32_t registerLogFlag(int32_t* value, const char* prefix, const char* name,
                        const char* description);

/** Sets the variable of a registered flag. Ignores unknown names. */
void setLogFlag(const std::string& name, int32_t value);

/** Returns null if nothing has been registered yet. */
const LogFlagRegistry* getLogFlagRegistry();

/** Sets flags from the text of a flags file: words, each optionally followed by a number. Silently
    ignores junk. Returns every setting found, unknown names included. */
LogFlagFileSettings setLogFlagsFromText(std::string_view text);

/** Sets flags from a flags file, like the function above. A missing file is not an error. */
LogFlagFileSettings readLogFlagsFile(const juce::File& file);

/** Logs the registry as a table. */
void dumpLogFlags();

} // namespace quelta
