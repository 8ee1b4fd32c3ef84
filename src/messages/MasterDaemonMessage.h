// The record that masters and the daemon exchange: beacons over UDP; requests, replies and
// notifications over TCP. Pure functions on bytes. All integers on the wire are little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "messages/MasterAddress.h"

namespace quelta {

/** The type of a record. Values below `typeLimit` that are not named here are valid in a received
    record, but the daemon does not use them. */
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

    /** The reply to an unknown request type. It fails every receiver's validation, which is how
        masters recognise it. */
    UNEXPECTED_REQUEST = 13
};

struct MasterDaemonMessage
{
    static constexpr size_t size = 92;     ///< Bytes on the wire.
    static constexpr size_t textSize = 32; ///< Bytes of `masterText` and of `slaveAlias`.
    static constexpr uint32_t magic = 0x00234341;
    static constexpr uint32_t version = 8;
    static constexpr uint32_t typeLimit = 13; ///< Valid types are below this.

    using Bytes = std::array<uint8_t, size>;

    MasterMessageType type = MasterMessageType::SCAN_REQUEST;

    /** From a master: its own address. From the daemon: the owner's, zero if there is none. */
    MasterAddress masterAddress;

    /** From a master: all 32 bytes as received, NULs included. From the daemon: the owner's
        text. */
    std::string masterText;

    std::string slaveAlias;    ///< Set only by the daemon; truncated to 32 bytes on the wire.
    uint32_t numGpus = 0;      ///< Set only by the daemon.
    uint32_t slaveVersion = 0; ///< Set only by the daemon.
};

/** Encodes a record. Each text is copied up to its first NUL, at most 32 bytes, and the rest of its
    field is filled with NULs. */
MasterDaemonMessage::Bytes encodeMasterMessage(const MasterDaemonMessage& message);

/** Validates `size` received bytes. If they are a valid record, fills `out`, in which `masterText`
    and `slaveAlias` then hold all 32 bytes, and returns true. Otherwise logs the check that failed
    (under the flag `daemon`), leaves `out` unchanged and returns false. Any thread. */
bool parseMasterMessage(const void* data, size_t size, MasterDaemonMessage& out);

/** Returns the part of a text field before its first NUL. */
std::string_view textBeforeNul(std::string_view field);

} // namespace quelta
