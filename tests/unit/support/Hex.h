// Bytes as hexadecimal text: "0D 72 CE 7F".
#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace quelta::test {

inline std::vector<uint8_t> fromHex(const std::string& text)
{
    std::istringstream words(text);
    std::vector<uint8_t> bytes;

    for (std::string word; words >> word;)
        bytes.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));

    return bytes;
}

/** Two digits and a blank for each byte. */
template <typename Bytes>
std::string toHex(const Bytes& bytes)
{
    std::string text;

    for (const auto byte : bytes)
    {
        char word[4];
        std::snprintf(word, sizeof(word), "%02X ",
                      static_cast<unsigned>(static_cast<uint8_t>(byte)));
        text += word;
    }

    return text;
}

} // namespace quelta::test
