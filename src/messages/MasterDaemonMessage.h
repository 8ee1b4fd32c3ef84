// The one record that masters and the daemon exchange: beacons by UDP, requests, replies and
// notifications by TCP. Pure functions on bytes; every integer on the wire is little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "messages/MasterAddress.h"

namespace quelta {

/** What a record says. Values below `limit` that are not named here pass the check of a received
    record but have no role in the daemon. */
enum class MasterMessageType : uint32_t
{
    SCAN_REQUEST = 0,
    DAEMON_STATUS = 1,
    START_REQUEST = 2,
    START_REPLY = 3,
    STOP_REQUEST = 4,
    STOP_REPLY = 5,
    SLAVE_FAILED = 6,
    SLAVE_RUNNING = 9,
    STEAL_REQUEST = 11,
    STEAL_REPLY = 12,

    /** The reply to a request that nobody knows. No receiver's check lets it pass, and that is how
        masters know it. */
    UNEXPECTED_REQUEST = 13
};

struct MasterDaemonMessage
{
    static constexpr size_t size = 92;     ///< Bytes on the wire.
    static constexpr size_t textSize = 32; ///< Bytes of `masterText` and of `slaveAlias`.
    static constexpr uint32_t magic = 0x00234341;
    static constexpr uint32_t version = 8;
    static constexpr uint32_t typeLimit = 13; ///< Types of received records are below this.

    using Bytes = std::array<uint8_t, size>;

    MasterMessageType type = MasterMessageType::SCAN_REQUEST;

    /** From a master: its own address. From the daemon: the owner's, all zero without one. */
    MasterAddress masterAddress;

    /** From a master: all 32 bytes as received, NULs included. From the daemon: the owner's
        text. */
    std::string masterText;

    std::string slaveAlias;    ///< Only the daemon fills it; cut to 32 bytes when encoded.
    uint32_t numGpus = 0;      ///< Only the daemon fills it.
    uint32_t slaveVersion = 0; ///< Only the daemon fills it.
};

/** The record's bytes. Both texts are bounded string copies: what follows a first NUL, or the 32nd
    byte, is not sent, and the rest of the field is NULs. */
MasterDaemonMessage::Bytes encodeMasterMessage(const MasterDaemonMessage& message);

/** Checks `size` received bytes and, if they are a valid record, fills `out` and returns true.
    Otherwise logs which test failed (under the flag `daemon`), leaves `out` alone and returns
    false. `masterText` and `slaveAlias` hold all 32 bytes afterwards. Any thread. */
bool parseMasterMessage(const void* data, size_t size, MasterDaemonMessage& out);

/** The part of a 32-byte field before its first NUL. */
std::string_view textBeforeNul(std::string_view field);

} // namespace quelta
