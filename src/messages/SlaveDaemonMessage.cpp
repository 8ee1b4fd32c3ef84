#include "messages/SlaveDaemonMessage.h"

#include "log/Log.h"
#include "util/LittleEndian.h"

namespace quelta {

namespace {

enum Offset : size_t
{
    headerAt = 0,
    versionAt = 4,
    typeAt = 8,
    numGpusAt = 12,
    slaveVersionAt = 16
};

static_assert(SlaveDaemonMessage::size == slaveVersionAt + sizeof(uint32_t));

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

    if (readLittleEndian32(bytes + headerAt) != headerValue)
    {
        logError("slave daemon message had invalid header");
        return false;
    }

    if (const auto version = readLittleEndian32(bytes + versionAt); version != versionValue)
    {
        logError("slave daemon message had invalid version (%u)", version);
        return false;
    }

    const auto type = readLittleEndian32(bytes + typeAt);

    if (type > highestType)
    {
        logError("slave daemon message had invalid type (%d)", static_cast<int>(type));
        return false;
    }

    message.type = static_cast<SlaveMessageType>(type);
    message.numGpus = readLittleEndian32(bytes + numGpusAt);
    message.slaveVersion = readLittleEndian32(bytes + slaveVersionAt);
    return true;
}

SlaveDaemonMessage::Bytes SlaveDaemonMessage::encode() const
{
    Bytes bytes{};
    writeLittleEndian32(&bytes[headerAt], headerValue);
    writeLittleEndian32(&bytes[versionAt], versionValue);
    writeLittleEndian32(&bytes[typeAt], static_cast<uint32_t>(type));
    writeLittleEndian32(&bytes[numGpusAt], numGpus);
    writeLittleEndian32(&bytes[slaveVersionAt], slaveVersion);
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
