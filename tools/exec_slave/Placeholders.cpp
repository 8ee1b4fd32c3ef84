#include "exec_slave/Placeholders.h"

#include <charconv>
#include <functional>
#include <optional>

#include "exec_slave/Wording.h"

namespace quelta::execslave {

namespace {

constexpr std::string_view portOffset = "master_port+";

const std::vector<std::string> names = {"{master_address}", "{master_port}", "{master_port+N}",
                                        "{alias}",          "{gpus}",        "{gpu_count}",
                                        "{out_of_core}",    "{headroom}"};

std::string joinNumbers(const std::vector<unsigned>& numbers)
{
    std::string text;

    for (const auto number : numbers)
    {
        if (!text.empty())
            text += ',';

        text += std::to_string(number);
    }

    return text;
}

/** Returns N of "master_port+N". */
std::optional<uint16_t> parsePortOffset(std::string_view name)
{
    if (!name.starts_with(portOffset))
        return std::nullopt;

    uint16_t offset = 0;
    const auto* end = name.data() + name.size();
    const auto [stop, result] = std::from_chars(name.data() + portOffset.size(), end, offset);
    return stop == end && result == std::errc() ? std::optional(offset) : std::nullopt;
}

/** Returns the value of the placeholder with this name, which stands without its braces. */
std::optional<std::string> findValue(std::string_view name, const PlaceholderValues& values)
{
    if (name == "master_address")
        return values.masterAddress;

    if (name == "master_port")
        return std::to_string(values.masterPort);

    if (name == "alias")
        return values.alias;

    if (name == "gpus")
        return joinNumbers(values.gpus);

    if (name == "gpu_count")
        return std::to_string(values.gpus.size());

    if (name == "out_of_core")
        return std::to_string(values.outOfCore);

    if (name == "headroom")
        return std::to_string(values.headroom);

    if (const auto offset = parsePortOffset(name))
        return std::to_string(uint32_t{values.masterPort} + *offset);

    return std::nullopt;
}

/** Returns an error if the placeholder is a port above the highest. */
std::string findPortError(std::string_view name, const PlaceholderValues& values)
{
    const auto port = uint32_t{values.masterPort} + parsePortOffset(name).value_or(uint16_t{0});

    if (port <= 65535)
        return {};

    return "expected a port up to 65535, found " + std::to_string(port) + ", which is {" +
           std::string(name) + "} for the master's port " + std::to_string(values.masterPort);
}

std::string describeUnknown(std::string_view name)
{
    if (name.starts_with(portOffset))
        return "expected a number from 0 to 65535 after \"{master_port+\", found " +
               quoteText(name.substr(portOffset.size()));

    const auto found = '{' + std::string(name) + '}';
    return "expected a placeholder (" + joinNames(names) + ") or {{ for a brace, found " +
           quoteText(found) + suggestName(found, names);
}

/** Replaces placeholders and double braces. Appends to `expanded` up to the first error, which it
    returns. */
std::string expand(std::string_view text, const PlaceholderValues& values, std::string& expanded)
{
    while (!text.empty())
    {
        const auto brace = text.find_first_of("{}");
        expanded += text.substr(0, brace);

        if (brace == std::string_view::npos)
            break;

        const auto rest = text.substr(brace);

        if (rest.starts_with("{{") || rest.starts_with("}}"))
        {
            expanded += rest[0];
            text = rest.substr(2);
            continue;
        }

        const auto end = rest.find('}');

        if (rest[0] == '}')
            return "expected {NAME} or }} for a brace, found a single }";

        if (end == std::string_view::npos)
            return "expected } after {, found the end of the text";

        const auto name = rest.substr(1, end - 1);
        const auto value = findValue(name, values);

        if (!value)
            return describeUnknown(name);

        if (auto error = findPortError(name, values); !error.empty())
            return error;

        expanded += *value;
        text = rest.substr(end + 1);
    }

    return {};
}

/** All texts with placeholders. */
std::vector<std::string*> collectTexts(Configuration& configuration)
{
    std::vector<std::string*> texts{&configuration.folder, &configuration.output.file,
                                    &configuration.ready.tcp, &configuration.alive.tcp};

    for (auto* command :
         {&configuration.command, &configuration.versionCommand, &configuration.ready.command,
          &configuration.alive.command, &configuration.stop.command})
        for (auto& word : *command)
            texts.push_back(&word);

    for (auto& [name, value] : configuration.environment)
        texts.push_back(&value);

    return texts;
}

} // namespace

std::string findPlaceholderError(std::string_view text)
{
    std::string ignored;
    return expand(text, {}, ignored);
}

std::string expandPlaceholders(std::string_view text, const PlaceholderValues& values)
{
    std::string expanded;
    expand(text, values, expanded);
    return expanded;
}

Configuration expandPlaceholders(Configuration configuration, const PlaceholderValues& values)
{
    for (auto* text : collectTexts(configuration))
        *text = expandPlaceholders(*text, values);

    return configuration;
}

std::string findExpansionError(Configuration configuration, const PlaceholderValues& values)
{
    for (const auto* text : collectTexts(configuration))
    {
        std::string ignored;

        if (auto error = expand(*text, values, ignored); !error.empty())
            return error;
    }

    return {};
}

} // namespace quelta::execslave
