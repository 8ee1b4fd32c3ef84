// A regular expression and, after a line feed, the text that it is searched in.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "exec_slave/Pattern.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const auto cut = std::min(input.find('\n'), input.size());
    const auto text = input.substr(std::min(cut + 1, input.size()));
    std::string error;
    const quelta::execslave::Pattern pattern(input.substr(0, cut), error);
    const auto groups = pattern.groups(text);

    if (pattern.matches(text) && !error.empty())
        std::abort();

    if (!groups.empty() && (groups.size() != pattern.countGroups() || !pattern.matches(text)))
        std::abort();
    return 0;
}
