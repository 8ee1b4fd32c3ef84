// The log flags: named integers that code tests before it logs, that every user of the daemon may
// set in a small text file beside the executable, and that a registry knows by name.
//
// Flags are registered before main begins and written only while logging starts, so reading one
// takes no lock. Functions here are called under the log lock (see Log.h) or before any other
// thread exists.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>

namespace quelta {

/** The flags. In a namespace of their own because POSIX declares a function called daemon. */
namespace flags {

extern int32_t logAppendToFile;
extern int32_t logFlags;
extern int32_t logForceFlush; ///< Lines between two flushes of the log file; 0 for none.
extern int32_t logFlushTime;  ///< Milliseconds between two flushes of the log file; 0 for none.
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

/** One record of the registry. Code that tests a flag reads its variable, never the record. */
struct LogFlag
{
    std::string name;
    int32_t* value = nullptr;
    std::string prefix; ///< With its quotes, at most 12 characters.
    std::string description;
    LogFlagType type = LogFlagType::release;
};

/** Name to record, in byte-wise ascending order. */
using LogFlagRegistry = std::map<std::string, LogFlag>;

/** Name to value, as read from the flags file. */
using LogFlagFileSettings = std::map<std::string, int32_t>;

/** Enters a flag, replacing an earlier one of that name; `prefix` comes with its double quotes.
    Returns 0, with which static initialisers set the flag's variable. */
int32_t registerLogFlag(int32_t* value, const char* prefix, const char* name,
                        const char* description);

/** Sets the variable of a registered flag; does nothing for other names. */
void setLogFlag(const std::string& name, int32_t value);

/** Whatever has been registered so far; null before the first registration. */
const LogFlagRegistry* getLogFlagRegistry();

/** Sets flags from the text of a flags file: words, each with or without a number behind it.
    Every name is entered into `settings` unless it is there already. Junk is ignored without a
    message. */
void setLogFlagsFromText(std::string_view text, LogFlagFileSettings& settings);

/** The same for a file. Does nothing when there is no such file. */
void readLogFlagsFile(const juce::File& file, LogFlagFileSettings& settings);

/** Logs the registry as a table. */
void dumpLogFlags();

} // namespace quelta
