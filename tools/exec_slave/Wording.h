// Parts of error messages about the configuration. Pure.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quelta::execslave {

/** Quotes a text of the configuration file: shortened, with control characters and malformed UTF-8
    replaced. */
std::string quoteText(std::string_view text);

/** Returns "a, b or c". */
std::string joinNames(const std::vector<std::string>& names);

/** Returns "; did you mean NAME?" for the known name that `name` is a misspelling of, else an empty
    string. */
std::string suggestName(std::string_view name, const std::vector<std::string>& known);

} // namespace quelta::execslave
