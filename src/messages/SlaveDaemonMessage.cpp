#include "messages/SlaveDaemonMessage.h"

#include "log/Log.h"
#include "util/LittleEndian.h"

namespace quelta {

namespace {

struct SlaveOffset
{
    enum : size_t
    {
        header = 0,
        version = 4,
        type = 8,
        numGpus = 12,
        slaveVersion = 16
    };
};

static_assert(SlaveDaemonMessage::size == SlaveOffset::slaveVersion + sizeof(uint32_t));

} // namespace

SlaveDaemonMessage SlaveDaemonMessage::createStopMessage()
{
    SlaveDaemonMessage message;
    message.type = SlaveMessageType::STOP_SLAVE;
    return message;
}

bool SlaveDaemonMessage::fromData(const void* data, size_t length, SlaveDaemonMessage& message)
{
    if (length != size)
    {
        logError("slave daemon message had invalid size (%u)", static_cast<unsigned>(length));
        return false;
    }

    const auto* bytes = static_cast<const uint8_t*>(data);

    if (readLittleEndian32(bytes + SlaveOffset::header) != header)
    {
        logError("slave daemon message had invalid header");
        return false;
    }

    if (const auto sent = readLittleEndian32(bytes + SlaveOffset::version); sent != version)
    {
        logError("slave daemon message had invalid version (%u)", sent);
        return false;
    }

    const auto type = readLittleEndian32(bytes + SlaveOffset::type);

    if (type > maxType)
    {
        logError("slave daemon message had invalid type (%d)", static_cast<int>(type));
        return false;
    }

    message.type = static_cast<SlaveMessageType>(type);
    message.numGpus = readLittleEndian32(bytes + SlaveOffset::numGpus);
    message.slaveVersion = readLittleEndian32(bytes + SlaveOffset::slaveVersion);
    return true;
}

SlaveDaemonMessage::Bytes SlaveDaemonMessage::encode() const
{
    Bytes bytes{};
    writeLittleEndian32(&bytes[SlaveOffset::header], header);
    writeLittleEndian32(&bytes[SlaveOffset::version], version);
    writeLittleEndian32(&bytes[SlaveOffset::type], static_cast<uint32_t>(type));
    writeLittleEndian32(&bytes[SlaveOffset::numGpus], numGpus);
    writeLittleEndian32(&bytes[SlaveOffset::slaveVersion], slaveVersion);
    return bytes;
}

const char* SlaveDaemonMessage::getTypeName(SlaveMessageType type)
{
    switch (type)
    {
        case SlaveMessageType::AUTHENTICATING:
            return "AUTHENTICATING";
        case SlaveMessageType::SLAVE_INFO:
            return "SLAVE_INFO";
        case SlaveMessageType::SLAVE_STATUS:
            return "SLAVE_STATUS";
        case SlaveMessageType::STOP_SLAVE:
            return "STOP_SLAVE";
    }

    return "unknown";
}

} // namespace quelta
