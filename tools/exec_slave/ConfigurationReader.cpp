#include "exec_slave/ConfigurationReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "exec_slave/CleanText.h"
#include "exec_slave/Pattern.h"
#include "exec_slave/Placeholders.h"
#include "exec_slave/TomlTable.h"
#include "exec_slave/Wording.h"
#include "exec_slave/platform/Environment.h"
#include "platform/Paths.h"
#include "util/ValidUtf8.h"

namespace quelta::execslave {

namespace {

using std::chrono::milliseconds;

/** Keys such as a.a.a.a nest by two bytes a level, and toml++ frees the levels recursively. */
constexpr int64_t maxFileSize = 32768;
constexpr double minSeconds = 0.001;
constexpr double maxSeconds = 1'000'000;
constexpr int64_t maxGpus = 1024;
/** The daemon waits 12 s for the slave to stop, and the slave itself needs some of them. */
constexpr double maxGraceSeconds = 11;
constexpr int64_t minLogSize = 1024;
constexpr int64_t maxLogSize = int64_t{1} << 40;

const std::vector<std::string> signalNames = {"HUP", "INT", "KILL", "QUIT", "TERM", "USR1", "USR2"};

std::string acceptAny(const std::string&)
{
    return {};
}

std::string checkPlaceholders(const std::string& text)
{
    return findPlaceholderError(text);
}

std::string checkPattern(const std::string& text)
{
    std::string error;
    Pattern pattern(text, error);
    return error.empty() ? ""
                         : "expected a regular expression, found " + quoteText(text) + ": " + error;
}

std::string checkVersionPattern(const std::string& text)
{
    std::string error;
    const auto numGroups = Pattern(text, error).countGroups();

    if (!error.empty())
        return checkPattern(text);

    return numGroups >= 1 && numGroups <= 3
               ? ""
               : "expected one to three groups such as (\\d+), found " + std::to_string(numGroups);
}

std::string checkSignal(const std::string& text)
{
    if (std::find(signalNames.begin(), signalNames.end(), text) != signalNames.end())
        return {};

    return "expected a signal (" + joinNames(signalNames) + "), found " + quoteText(text) +
           suggestName(text, signalNames);
}

/** Parses decimal digits only. */
std::optional<int64_t> parseDigits(std::string_view text)
{
    int64_t number = 0;
    const auto* end = text.data() + text.size();
    const auto [stop, result] = std::from_chars(text.data(), end, number);
    const auto valid = stop == end && result == std::errc() && number >= 0;
    return valid ? std::optional(number) : std::nullopt;
}

std::string checkHostAndPort(const std::string& text)
{
    if (auto error = findPlaceholderError(text); !error.empty())
        return error;

    PlaceholderValues example;
    example.masterAddress = "127.0.0.1";
    example.masterPort = 1024;
    example.alias = "node";
    const auto expanded = expandPlaceholders(text, example);
    const auto colon = expanded.find(':');
    const auto host = expanded.substr(0, colon);
    const auto port = parseDigits(colon < expanded.size() ? expanded.substr(colon + 1) : "");

    if (!host.empty() && host.find_first_of(" \t\r\n/") == std::string::npos && port && *port > 0 &&
        *port <= 65535)
        return {};

    return "expected HOST:PORT such as \"127.0.0.1:8000\", found " + quoteText(text);
}

std::string checkVariableName(const std::string& name)
{
    if (!name.empty() && name.find('=') == std::string::npos &&
        name.find('\0') == std::string::npos)
        return {};

    return "expected the name of an environment variable, found " + quoteText(name);
}

/** Parses a size such as "10M". */
std::optional<int64_t> parseSize(std::string_view text)
{
    int shift = 0;

    if (!text.empty())
        if (const auto unit = std::string_view("KMG").find(text.back());
            unit != std::string_view::npos)
            shift = 10 * (static_cast<int>(unit) + 1);

    const auto number = parseDigits(text.substr(0, text.size() - (shift > 0 ? 1 : 0)));

    if (!number || *number > maxLogSize >> shift)
        return std::nullopt;

    return *number << shift;
}

void readLogSize(TomlTable& table, int64_t& value)
{
    const auto* node = table.find("max_size");

    if (node == nullptr)
        return;

    std::optional<int64_t> size;

    if (const auto* text = node->as_string())
        size = parseSize(text->get());
    else if (const auto* number = node->as_integer())
        size = number->get();

    if (size && *size >= minLogSize && *size <= maxLogSize)
        value = *size;
    else
        table.rejectValue(*node, "max_size", "a size from \"1K\" to \"1024G\"");
}

void readGpus(TomlTable& table, std::optional<uint32_t>& value)
{
    const auto* node = table.find("gpus");

    if (node == nullptr || (node->is_string() && node->as_string()->get() == "auto"))
        return;

    const auto number = node->is_integer() ? node->as_integer()->get() : -1;

    if (number >= 0 && number <= maxGpus)
        value = static_cast<uint32_t>(number);
    else
        table.rejectValue(*node, "gpus", "\"auto\" or a whole number from 0 to 1024");
}

void readVersion(TomlTable& table, Configuration& configuration)
{
    int64_t version = 0;
    table.readInteger("version", 0, std::numeric_limits<uint32_t>::max(), version);
    configuration.version = static_cast<uint32_t>(version);
    table.readCommand("version_command", checkPlaceholders, configuration.versionCommand);
    table.readText("version_pattern", checkVersionPattern, configuration.versionPattern);

    const auto* number = table.find("version");
    const auto* command = table.find("version_command");
    const auto* pattern = table.find("version_pattern");

    if (number != nullptr && command != nullptr)
        table.reject(*command, "expected version or version_command, found both");

    if (command != nullptr && pattern == nullptr)
        table.reject(*command, "expected version_pattern beside version_command, found none");

    if (pattern != nullptr && command == nullptr)
        table.reject(*pattern, "expected version_command beside version_pattern, found none");
}

void readReady(TomlTable& table, ReadyCondition& ready)
{
    int64_t after = ready.after.count();
    table.readText("line", checkPattern, ready.line);
    table.readText("tcp", checkHostAndPort, ready.tcp);
    table.readCommand("command", checkPlaceholders, ready.command);
    table.readInteger("after", 0, 3'600'000, after);
    table.readSeconds("timeout", minSeconds, maxSeconds, ready.timeout);
    ready.after = milliseconds(after);

    const char* first = nullptr;

    for (const auto* key : {"line", "tcp", "command"})
        if (const auto* node = table.find(key))
        {
            if (first != nullptr)
                table.reject(*node,
                             "expected only one of line, tcp and command in [ready], found " +
                                 std::string(key) + " beside " + first);
            else
                first = key;
        }
}

void readAlive(TomlTable& table, AliveCondition& alive)
{
    milliseconds silence(-1);
    table.readText("tcp", checkHostAndPort, alive.tcp);
    table.readCommand("command", checkPlaceholders, alive.command);
    table.readSeconds("period", minSeconds, maxSeconds, alive.period);
    table.readSeconds("silence", minSeconds, maxSeconds, silence);

    if (silence.count() > 0)
        alive.silence = silence;
}

void readStop(TomlTable& table, StopLadder& stop)
{
    table.readText("signal", checkSignal, stop.signal);
    table.readCommand("command", checkPlaceholders, stop.command);
    table.readSeconds("grace", 0, maxGraceSeconds, stop.grace);
}

void readOutput(TomlTable& table, OutputSettings& output)
{
    int64_t keep = output.keep;
    table.readText("prefix", acceptAny, output.prefix);
    table.readText("file", checkPlaceholders, output.file);
    readLogSize(table, output.maxSize);
    table.readInteger("keep", 0, 1000, keep);
    output.keep = static_cast<int>(keep);
}

Configuration readConfiguration(const toml::table& root, std::vector<PlacedError>& errors)
{
    Configuration result;
    TomlTable table(root, "", errors);
    table.readCommand("command", checkPlaceholders, result.command);

    if (table.find("command") == nullptr)
        errors.push_back({{1, 1}, "expected the key command, found none"});

    table.readText("folder", checkPlaceholders, result.folder);
    readVersion(table, result);
    readGpus(table, result.gpus);
    table.readTexts("errors", checkPattern, result.errors);
    table.readVariables("environment", checkVariableName, checkPlaceholders, result.environment);
    table.readTable("ready", [&](TomlTable& inner) { readReady(inner, result.ready); });
    table.readTable("alive", [&](TomlTable& inner) { readAlive(inner, result.alive); });
    table.readTable("stop", [&](TomlTable& inner) { readStop(inner, result.stop); });
    table.readTable("output", [&](TomlTable& inner) { readOutput(inner, result.output); });
    table.rejectUnknownKeys();
    return result;
}

/** Returns toml++'s "Error while parsing WHAT: expected ..., saw ..." in the words of the other
    errors. */
PlacedError describeSyntaxError(const toml::parse_error& error)
{
    constexpr std::string_view prefix = "Error while parsing ";
    constexpr std::pair<std::string_view, std::string_view> words[] = {
        {", saw ", ", found "},
        {"encountered end-of-file", "expected more, found the end of the file"},
        {"Encountered invalid utf-8 sequence", "expected UTF-8, found other bytes"},
        {"could not determine value type",
         "expected a text in quotes, a number, true, false, a list or a table, found none"},
    };
    std::string text(error.description());

    if (const auto colon = text.find(": "); text.starts_with(prefix) && colon != std::string::npos)
        text =
            text.substr(colon + 2) + " (" + text.substr(prefix.size(), colon - prefix.size()) + ')';

    for (const auto& [given, wanted] : words)
        if (const auto place = text.find(given); place != std::string::npos)
            text.replace(place, given.size(), wanted);

    return {error.source().begin, cleanText(text)};
}

std::string formatError(const std::string& fileName, const PlacedError& error)
{
    return fileName + ':' + std::to_string(error.place.line) + ':' +
           std::to_string(error.place.column) + ": " + error.text;
}

} // namespace

ConfigurationResult parseConfiguration(std::string_view text, const std::string& fileName)
{
    std::vector<PlacedError> errors;
    ConfigurationResult result;

    try
    {
        result.configuration = readConfiguration(toml::parse(text), errors);
    }
    catch (const toml::parse_error& error)
    {
        errors.push_back(describeSyntaxError(error));
    }

    std::stable_sort(errors.begin(), errors.end(),
                     [](const auto& a, const auto& b) { return a.place < b.place; });

    for (const auto& error : errors)
        result.errors.push_back(formatError(fileName, error));

    return result;
}

ConfigurationResult loadConfiguration(const juce::File& file)
{
    const auto name = file.getFullPathName().toStdString();
    juce::MemoryBlock bytes;
    juce::FileInputStream stream(file);
    // Windows ends its texts with a line end.
    const auto fail = [&](const juce::String& reason) {
        ConfigurationResult result;
        result.errors.push_back("cannot read " + name + ": " + reason.trimEnd().toStdString());
        return result;
    };

    if (file.isDirectory())
        return fail("it is a folder");

    if (stream.openedOk())
        stream.readIntoMemoryBlock(bytes, maxFileSize + 1);

    if (stream.failedToOpen() || stream.getStatus().failed())
        return fail(stream.getStatus().getErrorMessage());

    if (bytes.getSize() > maxFileSize)
        return fail("it is longer than " + juce::String(maxFileSize) + " bytes");

    return parseConfiguration({static_cast<const char*>(bytes.getData()), bytes.getSize()}, name);
}

juce::File findConfigurationFile()
{
    if (const auto name = readEnvironment("QUELTA_EXEC_SLAVE_CONFIG"); name && !name->empty())
        return platform::resolvePath(juce::String::fromUTF8(toValidUtf8(*name).c_str()));

    const auto program = platform::executableFile();
    // Elsewhere a dot belongs to the name, as in "blender-3.6".
    const auto name = program.hasFileExtension("exe") ? program.getFileNameWithoutExtension()
                                                      : program.getFileName();
    return program.getSiblingFile(name + ".toml");
}

} // namespace quelta::execslave
