// The configuration of the exec slave: the contents of its TOML file. Plain data; every owner keeps
// its own copy.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quelta::execslave {

using Command = std::vector<std::string>; ///< A program and its arguments; no shell. May be empty.

/** The program is ready as soon as the one given condition holds: a line of output that matches, a
    TCP port that accepts, a command that exits with 0. Without any, once it has lived `after`. */
struct ReadyCondition
{
    std::string line; ///< A regular expression.
    std::string tcp;  ///< HOST:PORT
    Command command;
    std::chrono::milliseconds after{500};
    std::chrono::milliseconds timeout{60000};
};

/** Heartbeats go to the daemon only while all given conditions hold. */
struct AliveCondition
{
    std::string tcp; ///< HOST:PORT
    Command command;
    std::chrono::milliseconds period{5000};           ///< Between checks; also the limit of each.
    std::optional<std::chrono::milliseconds> silence; ///< The longest time without output.
};

struct StopLadder
{
    std::string signal = "TERM"; ///< Without "SIG". Linux only; on Windows it is Ctrl-Break.
    Command command;             ///< Runs before the signal.
    std::chrono::milliseconds grace{9000};
};

struct OutputSettings
{
    std::string prefix;
    std::string file; ///< Empty: no file.
    int64_t maxSize = 10 * 1024 * 1024;
    int keep = 3; ///< Rotated files.
};

struct Configuration
{
    Command command;
    std::string folder; ///< Empty: the folder in which the daemon started the slave.
    uint32_t version = 0;
    Command versionCommand;
    std::string versionPattern;
    std::optional<uint32_t> gpus; ///< Empty: "auto".
    std::vector<std::string> errors;
    std::map<std::string, std::string> environment;
    ReadyCondition ready;
    AliveCondition alive;
    StopLadder stop;
    OutputSettings output;
};

} // namespace quelta::execslave
