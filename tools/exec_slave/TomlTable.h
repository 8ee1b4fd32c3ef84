// One table of the configuration file, read key by key. Every key that is wrong or unknown adds an
// error with its place.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exec_slave/Configuration.h"
#include "exec_slave/Toml.h"

namespace quelta::execslave {

struct PlacedError
{
    toml::source_position place;
    std::string text;
};

class TomlTable
{
public:
    /** Returns what is wrong with a text, or an empty string. */
    using Check = std::function<std::string(const std::string&)>;

    /** `givenName` is empty for the file's outermost table. */
    TomlTable(const toml::table& givenTable, std::string givenName,
              std::vector<PlacedError>& givenErrors);

    /** Each reads a key into `value`, which remains unchanged if the key is missing or wrong. */
    void readText(const char* key, const Check& check, std::string& value);
    void readTexts(const char* key, const Check& check, std::vector<std::string>& value);
    void readCommand(const char* key, const Check& check, Command& value);
    void readInteger(const char* key, int64_t min, int64_t max, int64_t& value);
    void readSeconds(const char* key, double min, double max, std::chrono::milliseconds& value);

    /** Reads a table of texts under any names. */
    void readVariables(const char* key, const Check& checkName, const Check& checkValue,
                       std::map<std::string, std::string>& value);

    /** Calls `read` with the table under this key, unless it is missing. Then rejects its unknown
        keys. */
    void readTable(const char* key, const std::function<void(TomlTable&)>& read);

    /** Returns the value under a key and marks the key as known. Null if the key is missing. */
    const toml::node* find(const char* key);

    /** Adds an error at a value. */
    void reject(const toml::node& node, const std::string& text);

    /** Adds "expected EXPECTED for KEY, found VALUE" at a value. */
    void rejectValue(const toml::node& node, const std::string& key, const std::string& expected);

    /** Adds an error for each key that nothing has asked for. */
    void rejectUnknownKeys();

private:
    /** Returns the key with the table's name. */
    std::string fullName(const std::string& key) const;

    std::optional<std::string> getText(const toml::node& node, const std::string& key,
                                       const Check& check);

    const toml::table& table;
    const std::string name;
    std::vector<PlacedError>& errors;
    std::vector<std::string> known;
};

} // namespace quelta::execslave
