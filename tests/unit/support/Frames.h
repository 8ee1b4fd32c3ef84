// JUCE's message framing and its little-endian numbers, written by hand, independently of the code
// under test.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace quelta::test {

using Bytes = std::vector<uint8_t>;

inline void put32(Bytes& bytes, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
}

inline void put16(Bytes& bytes, uint16_t value)
{
    bytes.push_back(static_cast<uint8_t>(value));
    bytes.push_back(static_cast<uint8_t>(value >> 8));
}

/** Appends the text, padded with NULs to `size` bytes. */
inline void putText(Bytes& bytes, const std::string& text, size_t size)
{
    const auto end = bytes.size() + size;
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.resize(end);
}

inline uint32_t get32(const Bytes& bytes, size_t at)
{
    return static_cast<uint32_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16) |
           static_cast<uint32_t>(bytes[at + 3]) << 24;
}

inline uint16_t get16(const Bytes& bytes, size_t at)
{
    return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

/** The payload behind JUCE's header: magic number and length. */
inline Bytes frame(const Bytes& payload)
{
    Bytes bytes{0x2C, 0x9E, 0xB4, 0xF2};
    put32(bytes, static_cast<uint32_t>(payload.size()));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

} // namespace quelta::test
