// One record as it travels over TCP: JUCE's frame header, then the 92 bytes of the record.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "messages/Framing.h"
#include "messages/MasterDaemonMessage.h"
#include "util/LittleEndian.h"

namespace quelta::bench {

using Frame = std::array<uint8_t, frameHeaderSize + MasterDaemonMessage::size>;

inline Frame makeFrame(const MasterDaemonMessage::Bytes& record)
{
    Frame frame{};
    writeLittleEndian32(frame.data(), frameMagic);
    writeLittleEndian32(frame.data() + 4, static_cast<uint32_t>(record.size()));
    std::copy(record.begin(), record.end(), frame.begin() + frameHeaderSize);
    return frame;
}

/** The record's type. Checks nothing. */
inline MasterMessageType getType(const uint8_t* record)
{
    return static_cast<MasterMessageType>(readLittleEndian32(record + 8));
}

} // namespace quelta::bench
