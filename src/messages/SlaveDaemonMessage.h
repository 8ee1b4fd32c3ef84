// The message that the render slave and the daemon exchange over the slave monitor's connection,
// and the status that the monitor derives from it. Pure functions on bytes. All integers on the
// wire are little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace quelta {

enum class SlaveMessageType : uint32_t
{
    AUTHENTICATING = 0, ///< Slave: alive, not initialised yet.
    SLAVE_INFO = 1,     ///< Slave: initialised; carries its version and number of GPUs.
    SLAVE_STATUS = 2,   ///< Slave: heartbeat.
    STOP_SLAVE = 3      ///< Daemon: asks the slave to end.
};

/** The slave's progress, from its latest valid message. The values may follow in any order. */
enum SlaveStatus : uint32_t
{
    STATUS_STARTING = 0,       ///< No valid message yet.
    STATUS_AUTHENTICATING = 1, ///< AUTHENTICATING; no time limit applies.
    STATUS_INITIALIZED = 2,    ///< SLAVE_INFO.
    STATUS_RUNNING = 3         ///< SLAVE_STATUS.
};

struct SlaveDaemonMessage
{
    static constexpr size_t size = 20; ///< Bytes on the wire.
    static constexpr uint32_t header = 0x7FCE720D;
    static constexpr uint32_t version = 1;
    static constexpr uint32_t maxType = 5; ///< Valid types are up to this; 4 and 5 are unused.

    using Bytes = std::array<uint8_t, size>;

    SlaveMessageType type = SlaveMessageType::AUTHENTICATING;
    uint32_t numGpus = 0;      ///< Read in SLAVE_INFO only.
    uint32_t slaveVersion = 0; ///< Read in SLAVE_INFO only.

    /** Creates the message that asks the slave to end. */
    static SlaveDaemonMessage createStopMessage();

    /** Validates `length` received bytes. If they are a valid message, fills `message` and returns
        true. Otherwise logs the check that failed as an error, leaves `message` unchanged and
        returns false. */
    static bool fromData(const void* data, size_t length, SlaveDaemonMessage& message);

    /** Returns the bytes to send. */
    Bytes encode() const;

    /** Returns the name as above, or "unknown". */
    static const char* getTypeName(SlaveMessageType type);
};

} // namespace quelta
