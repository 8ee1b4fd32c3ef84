#include "exec_slave/SlaveArguments.h"

#include <array>
#include <charconv>
#include <string_view>

namespace quelta::execslave {

namespace {

/** Parses a whole text as a number of the type's range. */
template <typename Number>
bool parseNumber(std::string_view text, Number& number)
{
    const auto* end = text.data() + text.size();
    const auto [stop, result] = std::from_chars(text.data(), end, number);
    return !text.empty() && stop == end && result == std::errc();
}

bool isIpv4Address(std::string_view text)
{
    for (int octet = 0; octet < 4; ++octet)
    {
        const auto dot = octet < 3 ? text.find('.') : text.size();
        uint8_t value = 0;

        if (dot == std::string_view::npos || !parseNumber(text.substr(0, dot), value))
            return false;

        text.remove_prefix(octet < 3 ? dot + 1 : dot);
    }

    return text.empty();
}

/** Parses MAXIMUM[,HEADROOM]. */
bool parseOutOfCore(std::string_view text, SlaveArguments& parsed)
{
    const auto comma = text.find(',');
    return parseNumber(text.substr(0, comma), parsed.outOfCore) && parsed.outOfCore >= 0 &&
           (comma == std::string_view::npos ||
            (parseNumber(text.substr(comma + 1), parsed.headroom) && parsed.headroom >= 0));
}

bool parseGpu(std::string_view text, SlaveArguments& parsed)
{
    return parseNumber(text, parsed.gpus.emplace_back());
}

struct Option
{
    std::string_view name;
    const char* expected;
    bool (*take)(std::string_view text, SlaveArguments& parsed);
};

constexpr std::array<Option, 6> options{{
    {"--net-master-address", "an IPv4 address",
     [](std::string_view text, SlaveArguments& parsed) {
         parsed.masterAddress = text;
         return isIpv4Address(text);
     }},
    {"--net-master-port", "a port from 0 to 65535",
     [](std::string_view text, SlaveArguments& parsed) {
         return parseNumber(text, parsed.masterPort);
     }},
    {"--daemon-port", "a port from 1 to 65535",
     [](std::string_view text, SlaveArguments& parsed) {
         return parseNumber(text, parsed.daemonPort) && parsed.daemonPort != 0;
     }},
    {"--alias", "a name",
     [](std::string_view text, SlaveArguments& parsed) {
         parsed.alias = text;
         return true;
     }},
    {"-g", "the number of a GPU", parseGpu},
    {"--out-of-core", "MAXIMUM or MAXIMUM,HEADROOM in bytes", parseOutOfCore},
}};

const Option* findOption(std::string_view name)
{
    for (const auto& option : options)
        if (option.name == name)
            return &option;

    return nullptr;
}

std::string takeValue(const Option& option, const std::string* value, SlaveArguments& parsed)
{
    const auto expectation = std::string(option.name) + ": expected " + option.expected;

    if (value == nullptr)
        return expectation;

    return option.take(*value, parsed) ? "" : expectation + ", found '" + *value + "'";
}

} // namespace

SlaveArguments parseSlaveArguments(const std::vector<std::string>& arguments)
{
    SlaveArguments parsed;

    for (size_t i = 1; i < arguments.size() && parsed.error.empty(); ++i)
    {
        const auto* const option = findOption(arguments[i]);

        if (arguments[i] == "--daemon-info-request")
            parsed.infoRequest = true;
        else if (option == nullptr)
            parsed.error = "unknown argument '" + arguments[i] + "'";
        else
        {
            const auto* const value = i + 1 < arguments.size() ? &arguments[i + 1] : nullptr;
            parsed.error = takeValue(*option, value, parsed);
            ++i;
        }
    }

    if (parsed.error.empty() && parsed.daemonPort == 0)
        parsed.error = "--daemon-port is missing: the daemon starts this program, see --help";

    return parsed;
}

} // namespace quelta::execslave
