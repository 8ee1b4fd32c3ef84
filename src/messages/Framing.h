// JUCE's message framing on TCP: an 8-byte block of two little-endian words (magic number, payload
// length in bytes) precedes every record.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quelta {

/** JUCE's default magic number, used by every peer. */
constexpr uint32_t frameMagic = 0xF2B49E2C;

/** The size in bytes of the block ahead of a record. */
constexpr size_t frameHeaderSize = 8;

} // namespace quelta
