#include "exec_slave/TomlTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "exec_slave/Wording.h"

namespace quelta::execslave {

namespace {

std::string formatNumber(double number)
{
    std::array<char, 32> text{};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), number,
                                      std::chars_format::general, 15);
    return {text.data(), result.ptr};
}

std::string describe(const toml::node& node)
{
    if (const auto* text = node.as_string())
        return quoteText(text->get());

    if (const auto* integer = node.as_integer())
        return std::to_string(integer->get());

    if (const auto* number = node.as_floating_point())
        return formatNumber(number->get());

    if (const auto* boolean = node.as_boolean())
        return boolean->get() ? "true" : "false";

    if (const auto* array = node.as_array())
        return array->empty() ? "an empty list" : "a list";

    return node.is_table() ? "a table" : "a date or time";
}

} // namespace

TomlTable::TomlTable(const toml::table& givenTable, std::string givenName,
                     std::vector<PlacedError>& givenErrors)
    : table(givenTable), name(std::move(givenName)), errors(givenErrors)
{}

void TomlTable::readText(const char* key, const Check& check, std::string& value)
{
    if (const auto* node = find(key))
        if (auto text = getText(*node, key, check))
            value = std::move(*text);
}

void TomlTable::readTexts(const char* key, const Check& check, std::vector<std::string>& value)
{
    const auto* node = find(key);

    if (node == nullptr)
        return;

    if (!node->is_array())
        return rejectValue(*node, key, "a list of texts");

    std::vector<std::string> texts;

    for (const auto& element : *node->as_array())
        if (auto text = getText(element, key, check))
            texts.push_back(std::move(*text));

    value = std::move(texts);
}

void TomlTable::readCommand(const char* key, const Check& check, Command& value)
{
    const auto* node = find(key);

    if (node == nullptr)
        return;

    const auto* array = node->as_array();

    if (array == nullptr || array->empty())
        return rejectValue(*node, key, R"(a list such as ["program", "argument"])");

    readTexts(key, check, value);

    if (const auto* program = array->front().as_string(); program != nullptr && (**program).empty())
        rejectValue(*program, key, "the name of a program");
}

void TomlTable::readInteger(const char* key, int64_t min, int64_t max, int64_t& value)
{
    const auto* node = find(key);

    if (node == nullptr)
        return;

    const auto number = node->is_integer() ? node->as_integer()->get() : min - 1;

    if (number >= min && number <= max)
        value = number;
    else
        rejectValue(*node, key,
                    "a whole number from " + std::to_string(min) + " to " + std::to_string(max));
}

void TomlTable::readSeconds(const char* key, double min, double max,
                            std::chrono::milliseconds& value)
{
    const auto* node = find(key);

    if (node == nullptr)
        return;

    const auto seconds = node->is_number() ? node->value<double>().value_or(NAN) : NAN;

    if (seconds >= min && seconds <= max) // false for NaN
        value = std::chrono::milliseconds(std::llround(seconds * 1000));
    else
        rejectValue(*node, key, "seconds from " + formatNumber(min) + " to " + formatNumber(max));
}

void TomlTable::readVariables(const char* key, const Check& checkName, const Check& checkValue,
                              std::map<std::string, std::string>& value)
{
    const auto* node = find(key);

    if (node == nullptr)
        return;

    if (!node->is_table())
        return rejectValue(*node, key, "a table");

    for (const auto& [variable, content] : *node->as_table())
    {
        const std::string variableName(variable.str());

        if (const auto error = checkName(variableName); !error.empty())
            errors.push_back({variable.source().begin, error});

        if (auto text = getText(content, key + ('.' + variableName), checkValue))
            value[variableName] = std::move(*text);
    }
}

void TomlTable::readTable(const char* key, const std::function<void(TomlTable&)>& read)
{
    const auto* node = find(key);

    if (node == nullptr)
        return;

    if (!node->is_table())
        return rejectValue(*node, key, "a table");

    TomlTable inner(*node->as_table(), fullName(key), errors);
    read(inner);
    inner.rejectUnknownKeys();
}

const toml::node* TomlTable::find(const char* key)
{
    if (std::find(known.begin(), known.end(), key) == known.end())
        known.emplace_back(key);

    return table.get(key);
}

void TomlTable::reject(const toml::node& node, const std::string& text)
{
    errors.push_back({node.source().begin, text});
}

void TomlTable::rejectValue(const toml::node& node, const std::string& key,
                            const std::string& expected)
{
    reject(node, "expected " + expected + " for " + fullName(key) + ", found " + describe(node));
}

void TomlTable::rejectUnknownKeys()
{
    for (const auto& [key, value] : table)
    {
        const std::string found(key.str());

        if (std::find(known.begin(), known.end(), found) == known.end())
            errors.push_back({key.source().begin, "expected " + joinNames(known) +
                                                      (name.empty() ? "" : " in [" + name + "]") +
                                                      ", found the key " + quoteText(found) +
                                                      suggestName(found, known)});
    }
}

std::string TomlTable::fullName(const std::string& key) const
{
    return name.empty() ? key : name + '.' + key;
}

std::optional<std::string> TomlTable::getText(const toml::node& node, const std::string& key,
                                              const Check& check)
{
    if (!node.is_string())
    {
        rejectValue(node, key, "a text");
        return std::nullopt;
    }

    const auto& text = node.as_string()->get();
    const auto error = text.find('\0') == std::string::npos
                           ? check(text)
                           : "expected a text without U+0000, found " + quoteText(text);

    if (error.empty())
        return text;

    reject(node, error + " (" + fullName(key) + ')');
    return std::nullopt;
}

} // namespace quelta::execslave
