// How records travel over TCP: in JUCE's message framing, an 8-byte block of two
// little-endian words (magic number, payload length in bytes) ahead of every record.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quelta {

/** JUCE's default magic number, which every peer uses. */
constexpr uint32_t frameMagic = 0xF2B49E2C;

/** The size in bytes of the block ahead of a record. */
constexpr size_t frameHeaderSize = 8;

} // namespace quelta
