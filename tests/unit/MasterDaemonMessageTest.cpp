#include "messages/MasterDaemonMessage.h"

#include <gtest/gtest.h>

#include "support/Hex.h"
#include "support/LogCapture.h"

namespace quelta::test {
namespace {

// A record for the master at 10.0.0.5:21000: its slave runs.
const std::string slaveRunningBytes =
    "41 43 23 00 08 00 00 00 09 00 00 00 " //
    "05 00 00 0A 08 52 00 00 "             //
    "72 65 6E 64 65 72 2D 6D 61 73 74 65 72 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 " //
    "6E 6F 64 65 37 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 " //
    "02 00 00 00 04 03 02 01 ";

const std::string emptyText =
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 ";

/** A record of zeros except for its first twelve bytes. */
std::string recordWithHead(const std::string& head)
{
    return head + "00 00 00 00 00 00 00 00 " + emptyText + emptyText + "00 00 00 00 00 00 00 00 ";
}

class MasterDaemonMessageTest : public testing::Test
{
protected:
    MasterDaemonMessageTest() { flags::daemon = 1; }

    /** Parses the bytes as if they had been received. */
    bool receive(const std::string& hex)
    {
        const auto bytes = fromHex(hex);
        return parseMasterMessage(bytes.data(), bytes.size(), message);
    }

    void expectRejected(const std::string& hex, const std::string& text)
    {
        log.clear();
        EXPECT_FALSE(receive(hex)) << hex;
        EXPECT_EQ(log.lines(), Lines{text}) << hex;
    }

    LogCapture log;
    MasterDaemonMessage message;
};

TEST_F(MasterDaemonMessageTest, ARecordForTheOwnerHasTheseBytes)
{
    message.type = MasterMessageType::SLAVE_RUNNING;
    message.masterAddress = {0x0A000005, 21000};
    message.masterText = "render-master";
    message.slaveAlias = "node7";
    message.numGpus = 2;
    message.slaveVersion = 0x01020304;
    EXPECT_EQ(toHex(encodeMasterMessage(message)), slaveRunningBytes);
}

TEST_F(MasterDaemonMessageTest, WithoutAnOwnerOnlyAliasGpusAndVersionAreFilled)
{
    message.type = MasterMessageType::DAEMON_STATUS;
    message.slaveAlias = "node7";
    message.numGpus = 0x00000102;
    message.slaveVersion = 0xFFFFFFFE;
    EXPECT_EQ(toHex(encodeMasterMessage(message)),
              "41 43 23 00 08 00 00 00 01 00 00 00 "
              "00 00 00 00 00 00 00 00 " +
                  emptyText +
                  "6E 6F 64 65 37 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                  "00 00 00 00 00 00 "
                  "02 01 00 00 FE FF FF FF ");
}

TEST_F(MasterDaemonMessageTest, EveryTypeHasItsNumber)
{
    const auto typeByte = [](MasterMessageType type) {
        MasterDaemonMessage typed;
        typed.type = type;
        return toHex(encodeMasterMessage(typed)).substr(8 * 3, 4 * 3);
    };

    EXPECT_EQ(typeByte(MasterMessageType::SCAN_REQUEST), "00 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::DAEMON_STATUS), "01 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::START_REQUEST), "02 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::START_REPLY), "03 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::STOP_REQUEST), "04 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::STOP_REPLY), "05 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::SLAVE_FAILED), "06 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::SLAVE_RUNNING), "09 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::STEAL_REQUEST), "0B 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::STEAL_REPLY), "0C 00 00 00 ");
    EXPECT_EQ(typeByte(MasterMessageType::UNEXPECTED_REQUEST), "0D 00 00 00 ");
}

TEST_F(MasterDaemonMessageTest, TextsAreTruncatedTo32BytesWithoutATerminator)
{
    message.masterText = "0123456789abcdef0123456789ABCDEF";
    message.slaveAlias = "0123456789abcdef0123456789ABCDEF and more";
    const auto hex = toHex(encodeMasterMessage(message));
    const std::string full =
        "30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 30 31 32 33 34 35 36 37 38 39 41 42 43 44 "
        "45 46 ";
    EXPECT_EQ(hex.substr(20 * 3, 32 * 3), full);
    EXPECT_EQ(hex.substr(52 * 3, 32 * 3), full);
    EXPECT_EQ(hex.substr(84 * 3), "00 00 00 00 00 00 00 00 ");
}

TEST_F(MasterDaemonMessageTest, TextsAreSentUpToTheirFirstNul)
{
    message.masterText = std::string("ab\0cd", 5);
    message.slaveAlias = std::string("\0xyz", 4);
    const auto hex = toHex(encodeMasterMessage(message));
    EXPECT_EQ(hex.substr(20 * 3, 6 * 3), "61 62 00 00 00 00 ");
    EXPECT_EQ(hex.substr(52 * 3, 32 * 3), emptyText);
}

TEST_F(MasterDaemonMessageTest, AReceivedRecordIsParsed)
{
    EXPECT_TRUE(receive(slaveRunningBytes));
    EXPECT_EQ(message.type, MasterMessageType::SLAVE_RUNNING);
    EXPECT_EQ(message.masterAddress, (MasterAddress{0x0A000005, 21000}));
    EXPECT_EQ(message.masterText, std::string("render-master") + std::string(19, '\0'));
    EXPECT_EQ(message.slaveAlias, std::string("node7") + std::string(27, '\0'));
    EXPECT_EQ(message.numGpus, 2u);
    EXPECT_EQ(message.slaveVersion, 0x01020304u);
    EXPECT_EQ(log.lines(), Lines{});
}

/** The example beacon of docs/protocol.md. */
TEST_F(MasterDaemonMessageTest, ABeaconIsParsed)
{
    EXPECT_TRUE(
        receive("41 43 23 00 08 00 00 00 00 00 00 00 05 00 00 0A "
                "08 52 00 00 61 72 74 69 73 74 20 37 00 00 00 00 "
                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "00 00 00 00 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(message.type, MasterMessageType::SCAN_REQUEST);
    EXPECT_EQ(message.masterAddress, (MasterAddress{0x0A000005, 21000}));
    EXPECT_EQ(textBeforeNul(message.masterText), "artist 7");
    EXPECT_EQ(textBeforeNul(message.slaveAlias), "");
    EXPECT_EQ(message.numGpus, 0u);
    EXPECT_EQ(message.slaveVersion, 0u);
}

TEST_F(MasterDaemonMessageTest, ThePaddingIsIgnored)
{
    auto bytes = fromHex(slaveRunningBytes);
    bytes[18] = 0xFF;
    bytes[19] = 0xFF;
    EXPECT_TRUE(parseMasterMessage(bytes.data(), bytes.size(), message));
    EXPECT_EQ(message.masterAddress, (MasterAddress{0x0A000005, 21000}));
}

TEST_F(MasterDaemonMessageTest, ATextOf32BytesIsKeptAndSentBackWithoutATerminator)
{
    auto bytes = fromHex(slaveRunningBytes);
    std::fill(bytes.begin() + 20, bytes.begin() + 52, static_cast<uint8_t>('m'));
    EXPECT_TRUE(parseMasterMessage(bytes.data(), bytes.size(), message));
    EXPECT_EQ(message.masterText, std::string(32, 'm'));

    const auto sent = encodeMasterMessage(message);
    EXPECT_EQ(std::string(sent.begin() + 20, sent.begin() + 52), std::string(32, 'm'));
    EXPECT_EQ(sent[52], static_cast<uint8_t>('n'));
}

TEST_F(MasterDaemonMessageTest, AllBytesOfAReceivedTextAreKept)
{
    auto bytes = fromHex(slaveRunningBytes);
    bytes[51] = 0xFE; // long after the first NUL
    EXPECT_TRUE(parseMasterMessage(bytes.data(), bytes.size(), message));
    EXPECT_EQ(message.masterText, std::string("render-master") + std::string(18, '\0') + "\xFE");
    EXPECT_EQ(textBeforeNul(message.masterText), "render-master");
}

TEST_F(MasterDaemonMessageTest, AFieldWithoutNulIsTextThroughout)
{
    EXPECT_EQ(textBeforeNul("0123456789abcdef0123456789ABCDEF"),
              "0123456789abcdef0123456789ABCDEF");
    EXPECT_EQ(textBeforeNul(""), "");
    EXPECT_EQ(textBeforeNul(std::string_view("\0a", 2)), "");
}

TEST_F(MasterDaemonMessageTest, ARecordHas92Bytes)
{
    expectRejected("", "master daemon message has invalid size (0)");
    expectRejected(slaveRunningBytes.substr(3), "master daemon message has invalid size (91)");
    expectRejected(slaveRunningBytes.substr(0, 91 * 3),
                   "master daemon message has invalid size (91)");
    expectRejected(slaveRunningBytes + "00 ", "master daemon message has invalid size (93)");
}

TEST_F(MasterDaemonMessageTest, AnotherMagicIsRejected)
{
    expectRejected(recordWithHead("42 43 23 00 08 00 00 00 00 00 00 00 "),
                   "master daemon message has invalid magic");
    expectRejected(recordWithHead("00 23 43 41 08 00 00 00 00 00 00 00 "),
                   "master daemon message has invalid magic");
}

TEST_F(MasterDaemonMessageTest, AnotherVersionIsRejectedAndPrintedWithoutASign)
{
    expectRejected(recordWithHead("41 43 23 00 07 00 00 00 00 00 00 00 "),
                   "master daemon message has invalid version (7)");
    expectRejected(recordWithHead("41 43 23 00 FF FF FF FF 00 00 00 00 "),
                   "master daemon message has invalid version (4294967295)");
}

TEST_F(MasterDaemonMessageTest, TypesFromThirteenOnAreRejectedAndPrintedWithASign)
{
    expectRejected(recordWithHead("41 43 23 00 08 00 00 00 0D 00 00 00 "),
                   "master daemon message had invalid type (13)");
    expectRejected(recordWithHead("41 43 23 00 08 00 00 00 FF FF FF FF "),
                   "master daemon message had invalid type (-1)");
}

TEST_F(MasterDaemonMessageTest, EveryTypeBelowThirteenIsAccepted)
{
    const auto head = fromHex("41 43 23 00 08 00 00 00 00 00 00 00");

    for (uint8_t type = 0; type < 13; ++type)
    {
        auto bytes = fromHex(recordWithHead(toHex(head)));
        bytes[8] = type;
        EXPECT_TRUE(parseMasterMessage(bytes.data(), bytes.size(), message));
        EXPECT_EQ(static_cast<uint32_t>(message.type), type);
    }

    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(MasterDaemonMessageTest, TheFirstFailedCheckIsLogged)
{
    expectRejected("00 ", "master daemon message has invalid size (1)");
    expectRejected(recordWithHead("00 00 00 00 09 00 00 00 FF FF FF FF "),
                   "master daemon message has invalid magic");
    expectRejected(recordWithHead("41 43 23 00 09 00 00 00 FF FF FF FF "),
                   "master daemon message has invalid version (9)");
}

TEST_F(MasterDaemonMessageTest, ARejectedRecordDoesNotChangeTheResult)
{
    message.masterText = "before";
    EXPECT_FALSE(receive(recordWithHead("41 43 23 00 09 00 00 00 01 00 00 00 ")));
    EXPECT_EQ(message.type, MasterMessageType::SCAN_REQUEST);
    EXPECT_EQ(message.masterText, "before");
}

TEST_F(MasterDaemonMessageTest, RejectionsAreLoggedWithTheDaemonsPrefix)
{
    flags::logPrefix = 1;
    expectRejected("", "daemon    : master daemon message has invalid size (0)");
}

TEST_F(MasterDaemonMessageTest, RejectionsAreNotLoggedWhileTheFlagIsOff)
{
    flags::daemon = 0;
    flags::daemonDetail = 1;
    EXPECT_FALSE(receive(""));
    EXPECT_FALSE(receive(recordWithHead("42 43 23 00 08 00 00 00 00 00 00 00 ")));
    EXPECT_FALSE(receive(recordWithHead("41 43 23 00 07 00 00 00 00 00 00 00 ")));
    EXPECT_FALSE(receive(recordWithHead("41 43 23 00 08 00 00 00 0D 00 00 00 ")));
    EXPECT_EQ(log.lines(), Lines{});
}

} // namespace
} // namespace quelta::test
