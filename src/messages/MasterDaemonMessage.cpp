#include "messages/MasterDaemonMessage.h"

#include <algorithm>

#include "log/Log.h"
#include "util/LittleEndian.h"

namespace quelta {

namespace {

enum Offset : size_t
{
    magicAt = 0,
    versionAt = 4,
    typeAt = 8,
    ipAt = 12,
    portAt = 16,
    masterTextAt = 20,
    slaveAliasAt = 52,
    numGpusAt = 84,
    slaveVersionAt = 88
};

static_assert(slaveAliasAt == masterTextAt + MasterDaemonMessage::textSize);
static_assert(numGpusAt == slaveAliasAt + MasterDaemonMessage::textSize);
static_assert(MasterDaemonMessage::size == slaveVersionAt + sizeof(uint32_t));

void writeText(uint8_t* field, std::string_view text)
{
    const auto sent = textBeforeNul(text).substr(0, MasterDaemonMessage::textSize);
    std::copy(sent.begin(), sent.end(), field);
}

std::string readText(const uint8_t* field)
{
    return {field, field + MasterDaemonMessage::textSize};
}

bool isValidMasterMessage(const uint8_t* bytes, size_t size)
{
    if (size != MasterDaemonMessage::size)
    {
        QUELTA_LOG_DAEMON("master daemon message has invalid size (%u)", static_cast<unsigned>(size));
        return false;
    }

    if (readLittleEndian32(bytes + magicAt) != MasterDaemonMessage::magic)
    {
        QUELTA_LOG_DAEMON("master daemon message has invalid magic");
        return false;
    }

    if (const auto version = readLittleEndian32(bytes + versionAt); version != MasterDaemonMessage::version)
    {
        QUELTA_LOG_DAEMON("master daemon message has invalid version (%u)", version);
        return false;
    }

    if (const auto type = readLittleEndian32(bytes + typeAt); type >= MasterDaemonMessage::typeLimit)
    {
        QUELTA_LOG_DAEMON("master daemon message had invalid type (%d)", static_cast<int>(type));
        return false;
    }

    return true;
}

} // namespace

std::string_view textBeforeNul(std::string_view field)
{
    return field.substr(0, field.find('\0'));
}

MasterDaemonMessage::Bytes encodeMasterMessage(const MasterDaemonMessage& message)
{
    MasterDaemonMessage::Bytes bytes{};
    writeLittleEndian32(&bytes[magicAt], MasterDaemonMessage::magic);
    writeLittleEndian32(&bytes[versionAt], MasterDaemonMessage::version);
    writeLittleEndian32(&bytes[typeAt], static_cast<uint32_t>(message.type));
    writeLittleEndian32(&bytes[ipAt], message.masterAddress.ip);
    writeLittleEndian16(&bytes[portAt], message.masterAddress.port);
    writeText(&bytes[masterTextAt], message.masterText);
    writeText(&bytes[slaveAliasAt], message.slaveAlias);
    writeLittleEndian32(&bytes[numGpusAt], message.numGpus);
    writeLittleEndian32(&bytes[slaveVersionAt], message.slaveVersion);
    return bytes;
}

bool parseMasterMessage(const void* data, size_t size, MasterDaemonMessage& out)
{
    const auto* bytes = static_cast<const uint8_t*>(data);

    if (!isValidMasterMessage(bytes, size))
        return false;

    out.type = static_cast<MasterMessageType>(readLittleEndian32(bytes + typeAt));
    out.masterAddress.ip = readLittleEndian32(bytes + ipAt);
    out.masterAddress.port = readLittleEndian16(bytes + portAt);
    out.masterText = readText(bytes + masterTextAt);
    out.slaveAlias = readText(bytes + slaveAliasAt);
    out.numGpus = readLittleEndian32(bytes + numGpusAt);
    out.slaveVersion = readLittleEndian32(bytes + slaveVersionAt);
    return true;
}

} // namespace quelta
