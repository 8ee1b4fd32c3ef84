#include "standin_slave/Arguments.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

namespace quelta {

namespace {

bool takesValue(std::string_view option)
{
    static constexpr std::string_view options[] = {
        "--net-master-address", "--net-master-port", "--daemon-port", "--alias", "-g",
        "--out-of-core"};
    return std::find(std::begin(options), std::end(options), option) != std::end(options);
}

uint16_t parsePort(std::string_view text)
{
    uint16_t port = 0;
    const auto* end = text.data() + text.size();
    const auto [stop, result] = std::from_chars(text.data(), end, port);
    return stop == end && result == std::errc() ? port : uint16_t{0};
}

} // namespace

Arguments Arguments::parse(const std::vector<std::string>& arguments)
{
    Arguments parsed;

    for (size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string_view option = arguments[i];

        if (option == "--daemon-info-request")
            parsed.infoRequest = true;

        if (!takesValue(option) || ++i == arguments.size())
            continue;

        if (option == "--daemon-port" && parsed.daemonPort == 0)
            parsed.daemonPort = parsePort(arguments[i]);
    }

    return parsed;
}

} // namespace quelta
