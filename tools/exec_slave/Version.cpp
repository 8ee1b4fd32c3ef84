#include "exec_slave/Version.h"

#include <charconv>
#include <limits>

#include "exec_slave/Pattern.h"
#include "exec_slave/Wording.h"

namespace quelta::execslave {

std::optional<uint32_t> extractVersion(const std::string& output, const std::string& pattern,
                                       std::string& error)
{
    const Pattern compiled(pattern, error);

    if (!error.empty())
        return std::nullopt;

    const auto groups = compiled.groups(output);

    if (groups.empty())
    {
        error = "version_pattern does not match the output " + quoteText(output);
        return std::nullopt;
    }

    uint64_t version = 0;
    uint64_t factor = 1'000'000;

    for (size_t i = 0; i < groups.size() && factor > 0; ++i, factor /= 1000)
    {
        if (groups[i].empty())
            continue;

        uint32_t number = 0;
        const auto* end = groups[i].data() + groups[i].size();
        const auto [stop, result] = std::from_chars(groups[i].data(), end, number);

        if (stop != end || result != std::errc())
        {
            error = "version_pattern captures " + quoteText(groups[i]) +
                    ", which is not a number from 0 to 4294967295";
            return std::nullopt;
        }

        version += factor * number;
    }

    if (version > std::numeric_limits<uint32_t>::max())
    {
        error = "the version is " + std::to_string(version) + ", more than 4294967295";
        return std::nullopt;
    }

    return static_cast<uint32_t>(version);
}

} // namespace quelta::execslave
