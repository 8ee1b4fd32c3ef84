#include "exec_slave/Wording.h"

#include <algorithm>
#include <numeric>

#include "exec_slave/CleanText.h"

namespace quelta::execslave {

namespace {

/** The number of characters to insert, remove or replace to make `b` of `a`. */
size_t countEdits(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});

    for (size_t i = 0; i < a.size(); ++i)
    {
        auto diagonal = row[0];
        row[0] = i + 1;

        for (size_t j = 0; j < b.size(); ++j)
        {
            const auto replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }

    return row.back();
}

} // namespace

std::string quoteText(std::string_view text)
{
    constexpr size_t maxLength = 60;
    auto length = std::min(text.size(), maxLength);

    // Does not cut a character of several bytes.
    while (length > 0 && length < text.size() &&
           (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        --length;

    return '"' + cleanText(text.substr(0, length)) + (length < text.size() ? "...\"" : "\"");
}

std::string joinNames(const std::vector<std::string>& names)
{
    std::string text;

    for (size_t i = 0; i < names.size(); ++i)
    {
        if (i > 0)
            text += i + 1 == names.size() ? " or " : ", ";

        text += names[i];
    }

    return text;
}

std::string suggestName(std::string_view name, const std::vector<std::string>& known)
{
    const std::string* nearest = nullptr;
    size_t fewest = name.size() < 3 ? 2 : 3; // two exchanged letters are two edits

    for (const auto& candidate : known)
    {
        if (const auto edits = countEdits(name, candidate); edits < fewest)
        {
            fewest = edits;
            nearest = &candidate;
        }
    }

    return nearest != nullptr ? "; did you mean " + *nearest + "?" : "";
}

} // namespace quelta::execslave
