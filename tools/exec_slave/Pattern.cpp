#include "exec_slave/Pattern.h"

// Boost searches without recursion, but a search may take exponential time. These limits end it
// with an exception: the steps of a search (about 50 ms) and its memory (blocks of 4 KiB).
#define BOOST_REGEX_MAX_STATE_COUNT 2000000
#define BOOST_REGEX_MAX_BLOCKS 256
#include <boost/regex.hpp>
#include <stdexcept>

namespace quelta::execslave {

namespace {

// The default traits of Windows depend on the user's language.
using Expression = boost::basic_regex<char, boost::cpp_regex_traits<char>>;

/** Like boost::regex_search(), but without a match if the search is given up. */
bool search(const Expression& expression, std::string_view text, boost::cmatch& match)
{
    try
    {
        return boost::regex_search(text.data(), text.data() + text.size(), match, expression,
                                   boost::match_default | boost::match_not_dot_newline);
    }
    catch (const std::runtime_error&)
    {
        return false;
    }
}

/** Returns the first sentence of Boost's message, which is followed by one that quotes the
    expression. */
std::string describeError(const boost::regex_error& exception)
{
    const std::string text = exception.what();
    return text.substr(0, text.find(".  The error occurred")) + " at character " +
           std::to_string(exception.position() + 1);
}

} // namespace

struct Pattern::Compiled
{
    Expression expression;
};

Pattern::Pattern(const std::string& expression, std::string& error)
{
    try
    {
        auto result = std::make_shared<Compiled>();
        result->expression.assign(expression, boost::regex::perl);
        compiled = std::move(result);
    }
    catch (const boost::regex_error& exception)
    {
        error = describeError(exception);
    }
}

size_t Pattern::countGroups() const
{
    return compiled != nullptr ? compiled->expression.mark_count() : 0;
}

bool Pattern::matches(std::string_view text) const
{
    boost::cmatch match;
    return compiled != nullptr && search(compiled->expression, text, match);
}

std::vector<std::string> Pattern::groups(std::string_view text) const
{
    boost::cmatch match;
    std::vector<std::string> found;

    if (compiled != nullptr && search(compiled->expression, text, match))
        for (size_t i = 1; i < match.size(); ++i)
            found.push_back(match[static_cast<int>(i)].str());

    return found;
}

} // namespace quelta::execslave
