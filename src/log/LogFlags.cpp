#include "log/LogFlags.h"

#include <algorithm>
#include <array>
#include <vector>

#include "log/Log.h"
#include "util/LeadingInteger.h"

namespace quelta {

namespace {

constexpr size_t maxPrefixLength = 12; ///< Of a registered prefix, quotes included.

/** Created by the static initialisers below. Never destroyed, because threads may log until the
    process ends. */
LogFlagRegistry* registry = nullptr;

const char* getTypeName(LogFlagType type)
{
    switch (type)
    {
        case LogFlagType::debug:
            return "debug";
        case LogFlagType::release:
            return "release";
        case LogFlagType::perf:
            return "perf";
    }

    return "";
}

bool isBreak(char c)
{
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

bool isBlank(std::string_view token)
{
    return token.find_first_not_of(" \t\n\v\f\r") == std::string_view::npos;
}

/** Splits at white space outside double quotes. The quotes stay part of their token. */
std::vector<std::string_view> splitIntoTokens(std::string_view text)
{
    std::vector<std::string_view> tokens;

    for (size_t begin = 0; begin < text.size();)
    {
        auto end = begin;

        for (bool quoted = false; end < text.size() && (quoted || !isBreak(text[end])); ++end)
            if (text[end] == '"')
                quoted = !quoted;

        if (const auto token = text.substr(begin, end - begin); !isBlank(token))
            tokens.push_back(token);

        begin = end + 1;
    }

    return tokens;
}

/** Converts the text after the byte order mark. JUCE's conversion would stop at a NUL. */
std::string toUtf8(std::string_view utf16)
{
    const size_t highByte = utf16.front() == '\xFE' ? 0 : 1;
    std::string text;

    for (size_t i = 2; i + 1 < utf16.size(); i += 2)
    {
        const auto high = static_cast<uint8_t>(utf16[i + highByte]);
        const auto low = static_cast<uint8_t>(utf16[i + 1 - highByte]);
        std::array<char, 4> bytes{};
        juce::CharPointer_UTF8 end(bytes.data());
        end.write(static_cast<juce::juce_wchar>(high << 8 | low));
        text.append(bytes.data(), end.getAddress());
    }

    return text;
}

bool isValue(std::string_view token)
{
    return token.find_first_not_of("-0123456789") == std::string_view::npos;
}

} // namespace

namespace flags {

// Prefixes include the double quotes that the table of flags prints.
#define QUELTA_LOG_FLAG(name, prefix, description) \
    int32_t name = registerLogFlag(&name, prefix, #name, description)

QUELTA_LOG_FLAG(logAppendToFile, "\"\"",
                "If enabled, logging will be to the already existing log file appended");
QUELTA_LOG_FLAG(logFlags, "\"\"", "If enabled, all log flags will be dumped during startup");
QUELTA_LOG_FLAG(logForceFlush, "\"\"", "If enabled, every logged line will be flushed");
QUELTA_LOG_FLAG(
    logFlushTime, "\"\"",
    "The time (ms) after which the log is flushed. If set to 0, the timer based flush will be "
    "disabled.");
QUELTA_LOG_FLAG(logJuce, "\"JUCE\"",
                "If enabled, JUCE logging will go through the logging framework of Quelta");
QUELTA_LOG_FLAG(
    logToStdout, "\"\"",
    "If enabled, logging will go to standard out (when set to 1) or standard error (when set to "
    "2)");
QUELTA_LOG_FLAG(logToDebugConsole, "\"\"",
                "If enabled, logging will go to the debug console (Windows only)");
QUELTA_LOG_FLAG(logToFile, "\"\"", "If enabled, logging will go to a log file");
QUELTA_LOG_FLAG(logTime, "\"\"", "If enabled, each log line will have a timestamp");
QUELTA_LOG_FLAG(logPrefix, "\"\"", "If enabled, each log line will have a prefix");
QUELTA_LOG_FLAG(daemon, "\"daemon\"", "Enables general logging of the slave daemon.");
QUELTA_LOG_FLAG(daemonDetail, "\"daemon\"", "Enables detailed logging of the slave daemon.");

#undef QUELTA_LOG_FLAG

} // namespace flags

int32_t registerLogFlag(int32_t* value, const char* prefix, const char* name,
                        const char* description)
{
    if (registry == nullptr)
        registry = new LogFlagRegistry;

    std::string storedPrefix = prefix;

    if (storedPrefix.size() > maxPrefixLength)
    {
        storedPrefix.resize(maxPrefixLength);
        storedPrefix.back() = '"';
    }

    (*registry)[name] = {name, value, storedPrefix, description, LogFlagType::release};
    return 0;
}

void setLogFlag(const std::string& name, int32_t value)
{
    if (registry == nullptr)
        return;

    if (const auto found = registry->find(name); found != registry->end())
        *found->second.value = value;
}

const LogFlagRegistry* getLogFlagRegistry()
{
    return registry;
}

LogFlagFileSettings setLogFlagsFromText(std::string_view text)
{
    LogFlagFileSettings settings;
    std::string withoutEquals(text);
    std::replace(withoutEquals.begin(), withoutEquals.end(), '=', ' ');
    const auto tokens = splitIntoTokens(withoutEquals);

    for (size_t i = 0; i < tokens.size();)
    {
        const std::string name(tokens[i]);
        const bool hasValue = i + 1 < tokens.size() && isValue(tokens[i + 1]);
        const auto value = hasValue ? parseLeadingInt32(std::string(tokens[i + 1]).c_str()) : 1;

        setLogFlag(name, value);
        settings.emplace(name, value);
        i += hasValue ? 2 : 1;
    }

    return settings;
}

LogFlagFileSettings readLogFlagsFile(const juce::File& file)
{
    juce::MemoryBlock bytes;

    if (!file.existsAsFile() || !file.loadFileAsData(bytes))
        return {};

    std::string_view text(static_cast<const char*>(bytes.getData()), bytes.getSize());

    // Some text editors of Windows store UTF-16.
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF"))
        return setLogFlagsFromText(toUtf8(text));

    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);

    return setLogFlagsFromText(text);
}

void dumpLogFlags()
{
    logUnprefixed("%s", "");
    logUnprefixed("Flag                      Type    Value      Prefix       Description");
    logUnprefixed("%s %s %s %s %s", std::string(25, '-').c_str(), std::string(7, '-').c_str(),
                  std::string(10, '-').c_str(), std::string(12, '-').c_str(),
                  std::string(80, '-').c_str());

    for (const auto& [name, flag] : *registry)
        logUnprefixed("%-25s %-7s %-10d %-12s %s", name.c_str(), getTypeName(flag.type),
                      *flag.value, flag.prefix.c_str(), flag.description.c_str());
}

} // namespace quelta
