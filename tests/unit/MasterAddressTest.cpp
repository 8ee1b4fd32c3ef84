#include "messages/MasterAddress.h"

#include <gtest/gtest.h>

namespace quelta::test {
namespace {

TEST(MasterAddressTest, TheFirstDottedOctetIsTheMostSignificantByte)
{
    EXPECT_EQ(formatIp(0x0A000005), "10.0.0.5");
    EXPECT_EQ(formatIp(0xC0A8000A), "192.168.0.10");
}

TEST(MasterAddressTest, EveryOctetIsPrintedAsAnUnsignedNumber)
{
    EXPECT_EQ(formatIp(0), "0.0.0.0");
    EXPECT_EQ(formatIp(0xFFFFFFFF), "255.255.255.255");
    EXPECT_EQ(formatIp(0x80FF0180), "128.255.1.128");
}

TEST(MasterAddressTest, ThePortFollowsAColon)
{
    EXPECT_EQ(formatAddress({0x0A000005, 21000}), "10.0.0.5:21000");
    EXPECT_EQ(formatAddress({0xFFFFFFFF, 65535}), "255.255.255.255:65535");
    EXPECT_EQ(formatAddress({}), "0.0.0.0:0");
}

TEST(MasterAddressTest, AddressesAreOrderedByIpThenByPort)
{
    EXPECT_LT((MasterAddress{0x0A000005, 2}), (MasterAddress{0x0A000006, 1}));
    EXPECT_LT((MasterAddress{0x0A000005, 1}), (MasterAddress{0x0A000005, 2}));
    EXPECT_LT((MasterAddress{0x7F000001, 1}), (MasterAddress{0xC0A80001, 1})); // the ip has no sign
    EXPECT_LT((MasterAddress{1, 0x7FFF}), (MasterAddress{1, 0x8000}));         // nor has the port
    EXPECT_EQ((MasterAddress{0x0A000005, 1}), (MasterAddress{0x0A000005, 1}));
}

} // namespace
} // namespace quelta::test
