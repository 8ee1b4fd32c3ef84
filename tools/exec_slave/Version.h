// The slave's version, from the configuration or from the output of the version command.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quelta::execslave {

/** Computes 1,000,000 a + 1,000 b + c from the one to three groups of `pattern` in `output`.
    Missing and empty groups count as 0. Returns nothing, with `error` set, if nothing matches, a
    group is no number, or the version is too large. */
std::optional<uint32_t> extractVersion(const std::string& output, const std::string& pattern,
                                       std::string& error);

} // namespace quelta::execslave
