// The slave's version, from the configuration or from the output of the version command.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quelta::execslave {

/** Computes 1,000,000 a + 1,000 b + c from the groups of `pattern` in `output`; missing groups count
    as 0. Empty, with `error` set, if nothing matches or a group is no number or too large. */
std::optional<uint32_t> extractVersion(const std::string& output, const std::string& pattern,
                                       std::string& error);

} // namespace quelta::execslave
