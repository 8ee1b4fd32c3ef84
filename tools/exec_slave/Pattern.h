// A regular expression over bytes. A match that would take too long counts as no match, so that a
// program's output can neither exhaust the stack nor block the reader. Thread-safe once
// constructed.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quelta::execslave {

class Pattern
{
public:
    /** Compiles a Perl-style expression. If it is invalid, `error` says why and nothing matches. */
    Pattern(const std::string& expression, std::string& error);

    /** The number of captured groups; 0 if the expression is invalid. */
    size_t countGroups() const;

    /** Whether any part of the text matches. */
    bool matches(std::string_view text) const;

    /** The captured groups of the first match, without the whole; empty without a match. */
    std::vector<std::string> groups(std::string_view text) const;

private:
    struct Compiled;
    std::shared_ptr<const Compiled> compiled;
};

} // namespace quelta::execslave
