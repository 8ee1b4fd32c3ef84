#include "messages/SlaveDaemonMessage.h"

#include <gtest/gtest.h>

#include "support/Hex.h"
#include "support/LogCapture.h"

namespace quelta::test {
namespace {

class SlaveDaemonMessageTest : public testing::Test
{
protected:
    /** Parses the bytes as if they had been received. */
    bool receive(const std::string& hex)
    {
        const auto bytes = fromHex(hex);
        return SlaveDaemonMessage::fromData(bytes.data(), bytes.size(), message);
    }

    void expectRejected(const std::string& hex, const std::string& text)
    {
        log.clear();
        EXPECT_FALSE(receive(hex)) << hex;
        EXPECT_EQ(log.lines(), Lines{text}) << hex;
    }

    SlaveDaemonMessage message;
    LogCapture log;
};

TEST_F(SlaveDaemonMessageTest, TheStopMessageHasTheseBytes)
{
    EXPECT_EQ(toHex(SlaveDaemonMessage::createStopMessage().encode()),
              "0D 72 CE 7F 01 00 00 00 03 00 00 00 00 00 00 00 00 00 00 00 ");
}

TEST_F(SlaveDaemonMessageTest, TheSlavesInformationHasTheseBytes)
{
    message.type = SlaveMessageType::SLAVE_INFO;
    message.numGpus = 0x01020304;
    message.slaveVersion = 0xA1B2C3D4;
    EXPECT_EQ(toHex(message.encode()),
              "0D 72 CE 7F 01 00 00 00 01 00 00 00 04 03 02 01 D4 C3 B2 A1 ");
}

TEST_F(SlaveDaemonMessageTest, AReceivedInformationIsParsed)
{
    EXPECT_TRUE(receive("0D 72 CE 7F 01 00 00 00 01 00 00 00 04 03 02 01 D4 C3 B2 A1"));
    EXPECT_EQ(message.type, SlaveMessageType::SLAVE_INFO);
    EXPECT_EQ(message.numGpus, 0x01020304u);
    EXPECT_EQ(message.slaveVersion, 0xA1B2C3D4u);
    EXPECT_EQ(log.lines(), Lines{});
}

/** The example message of docs/protocol.md. */
TEST_F(SlaveDaemonMessageTest, AnInformationOfVersion4000000HasTheseBytes)
{
    const std::string bytes = "0D 72 CE 7F 01 00 00 00 01 00 00 00 02 00 00 00 00 09 3D 00 ";
    EXPECT_TRUE(receive(bytes));
    EXPECT_EQ(message.type, SlaveMessageType::SLAVE_INFO);
    EXPECT_EQ(message.numGpus, 2u);
    EXPECT_EQ(message.slaveVersion, 4'000'000u);
    EXPECT_EQ(toHex(message.encode()), bytes);
}

TEST_F(SlaveDaemonMessageTest, AnInformationWithoutGpusIsValid)
{
    EXPECT_TRUE(receive("0D 72 CE 7F 01 00 00 00 01 00 00 00 00 00 00 00 2A 00 00 00"));
    EXPECT_EQ(message.type, SlaveMessageType::SLAVE_INFO);
    EXPECT_EQ(message.numGpus, 0u);
    EXPECT_EQ(message.slaveVersion, 42u);
}

TEST_F(SlaveDaemonMessageTest, TypesUpToFiveAreValid)
{
    for (uint32_t type = 0; type <= 5; ++type)
    {
        EXPECT_TRUE(receive("0D 72 CE 7F 01 00 00 00 0" + std::to_string(type) +
                            " 00 00 00 00 00 00 00 00 00 00 00"));
        EXPECT_EQ(static_cast<uint32_t>(message.type), type);
    }

    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(SlaveDaemonMessageTest, OtherTypesAreRejectedAndPrintedWithASign)
{
    expectRejected("0D 72 CE 7F 01 00 00 00 06 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid type (6)");
    expectRejected("0D 72 CE 7F 01 00 00 00 FF FF FF FF 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid type (-1)");
    expectRejected("0D 72 CE 7F 01 00 00 00 00 00 00 80 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid type (-2147483648)");
}

TEST_F(SlaveDaemonMessageTest, AMessageHasTwentyBytes)
{
    expectRejected("", "slave daemon message had invalid size (0)");
    expectRejected("0D 72 CE 7F 01 00 00 00 01 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid size (19)");
    expectRejected("0D 72 CE 7F 01 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid size (21)");
    expectRejected("FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF",
                   "slave daemon message had invalid size (24)");
}

TEST_F(SlaveDaemonMessageTest, AnotherHeaderIsRejected)
{
    expectRejected("0D 72 CE 7E 01 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid header");
}

TEST_F(SlaveDaemonMessageTest, TheHeaderInTheOtherByteOrderIsRejected)
{
    expectRejected("7F CE 72 0D 01 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid header");
}

TEST_F(SlaveDaemonMessageTest, AnotherVersionIsRejectedAndPrintedWithoutASign)
{
    expectRejected("0D 72 CE 7F 02 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid version (2)");
    expectRejected("0D 72 CE 7F 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid version (0)");
    expectRejected("0D 72 CE 7F FF FF FF FF 01 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid version (4294967295)");
}

TEST_F(SlaveDaemonMessageTest, TheFirstFailedCheckIsLogged)
{
    expectRejected("00 00 00 00 02 00 00 00 FF FF FF FF 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid header");
    expectRejected("0D 72 CE 7F 02 00 00 00 FF FF FF FF 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid version (2)");
}

TEST_F(SlaveDaemonMessageTest, RejectionsAreErrorsWithoutAnyFlag)
{
    flags::logPrefix = 1;
    expectRejected("", "ERROR     : slave daemon message had invalid size (0)");
}

TEST_F(SlaveDaemonMessageTest, EveryTypeHasAName)
{
    const auto nameOf = [](uint32_t type) {
        return std::string(SlaveDaemonMessage::getTypeName(static_cast<SlaveMessageType>(type)));
    };

    EXPECT_EQ(nameOf(0), "AUTHENTICATING");
    EXPECT_EQ(nameOf(1), "SLAVE_INFO");
    EXPECT_EQ(nameOf(2), "SLAVE_STATUS");
    EXPECT_EQ(nameOf(3), "STOP_SLAVE");
    EXPECT_EQ(nameOf(4), "unknown");
    EXPECT_EQ(nameOf(7), "unknown");
    EXPECT_EQ(nameOf(0xFFFFFFFF), "unknown");
}

TEST_F(SlaveDaemonMessageTest, StatusValuesFollowTheProgressOfTheSlave)
{
    EXPECT_EQ(STATUS_STARTING, 0u);
    EXPECT_EQ(STATUS_AUTHENTICATING, 1u);
    EXPECT_EQ(STATUS_INITIALIZED, 2u);
    EXPECT_EQ(STATUS_RUNNING, 3u);
}

} // namespace
} // namespace quelta::test
