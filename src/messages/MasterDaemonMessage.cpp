#include "messages/MasterDaemonMessage.h"

#include <algorithm>

#include "log/Log.h"
#include "util/LittleEndian.h"

namespace quelta {

namespace {

struct MasterOffset
{
    enum : size_t
    {
        magic = 0,
        version = 4,
        type = 8,
        ip = 12,
        port = 16,
        masterText = 20,
        slaveAlias = 52,
        numGpus = 84,
        slaveVersion = 88
    };
};

static_assert(MasterOffset::slaveAlias == MasterOffset::masterText + MasterDaemonMessage::textSize);
static_assert(MasterOffset::numGpus == MasterOffset::slaveAlias + MasterDaemonMessage::textSize);
static_assert(MasterDaemonMessage::size == MasterOffset::slaveVersion + sizeof(uint32_t));

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
        QUELTA_LOG_DAEMON("master daemon message has invalid size (%u)",
                          static_cast<unsigned>(size));
        return false;
    }

    if (readLittleEndian32(bytes + MasterOffset::magic) != MasterDaemonMessage::magic)
    {
        QUELTA_LOG_DAEMON("master daemon message has invalid magic");
        return false;
    }

    if (const auto version = readLittleEndian32(bytes + MasterOffset::version);
        version != MasterDaemonMessage::version)
    {
        QUELTA_LOG_DAEMON("master daemon message has invalid version (%u)", version);
        return false;
    }

    if (const auto type = readLittleEndian32(bytes + MasterOffset::type);
        type >= MasterDaemonMessage::typeLimit)
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
    writeLittleEndian32(&bytes[MasterOffset::magic], MasterDaemonMessage::magic);
    writeLittleEndian32(&bytes[MasterOffset::version], MasterDaemonMessage::version);
    writeLittleEndian32(&bytes[MasterOffset::type], static_cast<uint32_t>(message.type));
    writeLittleEndian32(&bytes[MasterOffset::ip], message.masterAddress.ip);
    writeLittleEndian16(&bytes[MasterOffset::port], message.masterAddress.port);
    writeText(&bytes[MasterOffset::masterText], message.masterText);
    writeText(&bytes[MasterOffset::slaveAlias], message.slaveAlias);
    writeLittleEndian32(&bytes[MasterOffset::numGpus], message.numGpus);
    writeLittleEndian32(&bytes[MasterOffset::slaveVersion], message.slaveVersion);
    return bytes;
}

bool parseMasterMessage(const void* data, size_t size, MasterDaemonMessage& out)
{
    const auto* bytes = static_cast<const uint8_t*>(data);

    if (!isValidMasterMessage(bytes, size))
        return false;

    out.type = static_cast<MasterMessageType>(readLittleEndian32(bytes + MasterOffset::type));
    out.masterAddress.ip = readLittleEndian32(bytes + MasterOffset::ip);
    out.masterAddress.port = readLittleEndian16(bytes + MasterOffset::port);
    out.masterText = readText(bytes + MasterOffset::masterText);
    out.slaveAlias = readText(bytes + MasterOffset::slaveAlias);
    out.numGpus = readLittleEndian32(bytes + MasterOffset::numGpus);
    out.slaveVersion = readLittleEndian32(bytes + MasterOffset::slaveVersion);
    return true;
}

} // namespace quelta
