// The records between masters and the daemon, written and read by hand from a master's view.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "Frames.h"
#include "messages/MasterAddress.h"

namespace quelta::test {

// The types of a record, numbered independently of the code under test.
enum RecordType : uint32_t
{
    scanRequest = 0,
    daemonStatus = 1,
    startRequest = 2,
    startReply = 3,
    stopRequest = 4,
    stopReply = 5,
    slaveFailed = 6,
    slaveRunning = 9,
    stealRequest = 11,
    stealReply = 12,
    unexpectedRequest = 13
};

/** The bytes of a record that a master sends. */
inline Bytes makeRecord(uint32_t type, const MasterAddress& master, const std::string& text = {})
{
    Bytes bytes{0x41, 0x43, 0x23, 0x00, 0x08, 0x00, 0x00, 0x00};
    put32(bytes, type);
    put32(bytes, master.ip);
    put16(bytes, master.port);
    putText(bytes, "", 2);
    putText(bytes, text, 32);
    putText(bytes, "", 40);
    return bytes;
}

/** A record from the daemon. */
struct DaemonRecord
{
    explicit DaemonRecord(Bytes received)
        : bytes(std::move(received)),
          type(get32(bytes, 8)),
          owner{get32(bytes, 12), get16(bytes, 16)},
          ownerText(bytes.begin() + 20, bytes.begin() + 52)
    {}

    Bytes bytes;
    uint32_t type;
    MasterAddress owner;
    std::string ownerText; ///< 32 bytes.
};

} // namespace quelta::test
