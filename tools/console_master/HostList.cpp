#include "console_master/HostList.h"

#include <algorithm>
#include <charconv>

namespace quelta {

namespace {

/** Parses decimal digits only: no sign, no blanks. */
std::optional<uint32_t> parseNumber(std::string_view text, uint32_t max)
{
    uint32_t number = 0;
    const auto* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);

    if (result.ec != std::errc() || result.ptr != end || number > max)
        return std::nullopt;

    return number;
}

std::string withoutComments(std::string_view text)
{
    std::string kept;
    bool inComment = false;

    for (const char c : text)
    {
        if (c == '\n')
            inComment = false;
        else if (c == '#')
            inComment = true;

        if (!inComment)
            kept += c;
    }

    return kept;
}

} // namespace

std::string formatNode(const NodeName& node)
{
    return node.host + ":" + std::to_string(node.port);
}

std::optional<NodeName> parseNode(std::string_view text)
{
    const auto colon = text.find(':');

    if (colon == std::string_view::npos || colon == 0)
        return std::nullopt;

    const auto port = parseNumber(text.substr(colon + 1), 65535);

    if (!port || *port == 0)
        return std::nullopt;

    return NodeName{std::string(text.substr(0, colon)), static_cast<uint16_t>(*port)};
}

std::string addNodes(std::string_view text, std::vector<NodeName>& nodes)
{
    constexpr auto separators = " \t\r\n,";
    const auto words = withoutComments(text);

    for (auto start = words.find_first_not_of(separators); start != std::string::npos;)
    {
        const auto end = std::min(words.find_first_of(separators, start), words.size());
        const auto word = words.substr(start, end - start);
        const auto node = parseNode(word);

        if (!node)
            return "\"" + word + "\" is not a node: give host:port, for example 10.0.0.5:5130";

        if (std::find(nodes.begin(), nodes.end(), *node) != nodes.end())
            return "node " + word + " is given twice";

        nodes.push_back(*node);
        start = words.find_first_not_of(separators, end);
    }

    return {};
}

std::optional<uint32_t> parseIp(std::string_view text)
{
    uint32_t ip = 0;

    for (int i = 0; i < 4; ++i)
    {
        const auto dot = i < 3 ? text.find('.') : text.size();

        if (dot == std::string_view::npos)
            return std::nullopt;

        const auto octet = parseNumber(text.substr(0, dot), 255);

        if (!octet)
            return std::nullopt;

        ip = (ip << 8) | *octet;
        text.remove_prefix(i < 3 ? dot + 1 : dot);
    }

    return ip;
}

std::optional<MasterAddress> parseAddress(std::string_view text)
{
    const auto node = parseNode(text);
    const auto ip = node ? parseIp(node->host) : std::nullopt;

    if (!ip)
        return std::nullopt;

    return MasterAddress{*ip, node->port};
}

std::optional<MasterAddress> parseListenAddress(std::string_view text)
{
    constexpr std::string_view anyPort = ":0";

    if (!text.ends_with(anyPort))
        return parseAddress(text);

    const auto ip = parseIp(text.substr(0, text.size() - anyPort.size()));
    return ip ? std::optional(MasterAddress{*ip, 0}) : std::nullopt;
}

bool isLoopback(uint32_t ip)
{
    return (ip >> 24) == 127;
}

} // namespace quelta
