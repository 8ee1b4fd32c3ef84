#include "master/OwnershipDecision.h"

#include <gtest/gtest.h>

#include <vector>

namespace quelta::test {
namespace {

using Type = MasterMessageType;
using Stop = OwnershipDecision::Stop;

constexpr MasterAddress ownerAddress{0x0A000005, 21000};
constexpr MasterAddress otherPort{0x0A000005, 21001};
constexpr MasterAddress otherIp{0x0A000006, 21000};
constexpr MasterAddress noAddress{};
constexpr MasterAddress withoutPort{0x0A000005, 0};
constexpr MasterAddress withoutIp{0, 21000};

const std::vector<OwnershipState> freeStates{
    {.owner = noAddress}, {.owner = withoutPort}, {.owner = withoutIp}};

struct OwnershipRow
{
    const char* name;
    OwnershipState state;
    OwnershipRequest request;
    OwnershipDecision expected;
};

const OwnershipState owned{.owner = ownerAddress};
const OwnershipState failed{.owner = ownerAddress, .slaveFailed = true};
const OwnershipState unowned{.owner = noAddress};

const std::vector<OwnershipRow> ownershipTable{
    {"free, scan",
     unowned,
     {.type = Type::SCAN_REQUEST, .address = ownerAddress},
     {.reply = Type::DAEMON_STATUS}},
    {"free, start",
     unowned,
     {.type = Type::START_REQUEST, .address = ownerAddress},
     {.start = true, .reply = Type::START_REPLY}},
    {"free, stop",
     unowned,
     {.type = Type::STOP_REQUEST, .address = ownerAddress},
     {.reply = Type::STOP_REPLY}},
    {"free, stop with the address 0.0.0.0:0",
     unowned,
     {.type = Type::STOP_REQUEST, .address = noAddress},
     {.stop = Stop::andTellAll, .reply = Type::STOP_REPLY}},
    {"free, steal",
     unowned,
     {.type = Type::STEAL_REQUEST, .address = ownerAddress},
     {.stop = Stop::silently, .start = true, .reply = Type::STEAL_REPLY}},

    {"owned, scan by the owner",
     owned,
     {.type = Type::SCAN_REQUEST, .address = ownerAddress, .fromOwnersConnection = true},
     {.reply = Type::DAEMON_STATUS}},
    {"owned, start by another",
     owned,
     {.type = Type::START_REQUEST, .address = otherIp},
     {.reply = Type::START_REPLY}},
    {"owned, start by the owner",
     owned,
     {.type = Type::START_REQUEST, .address = ownerAddress, .fromOwnersConnection = true},
     {.reply = Type::START_REPLY}},
    {"owned, stop by the owner",
     owned,
     {.type = Type::STOP_REQUEST, .address = ownerAddress, .fromOwnersConnection = true},
     {.stop = Stop::andTellAll, .reply = Type::STOP_REPLY}},
    {"owned, stop in the owner's name",
     owned,
     {.type = Type::STOP_REQUEST, .address = ownerAddress},
     {.stop = Stop::andTellAll, .reply = Type::STOP_REPLY}},
    {"owned, stop by another over the owner's connection",
     owned,
     {.type = Type::STOP_REQUEST, .address = otherIp, .fromOwnersConnection = true},
     {.reply = Type::STOP_REPLY}},
    {"owned, stop by another port",
     owned,
     {.type = Type::STOP_REQUEST, .address = otherPort},
     {.reply = Type::STOP_REPLY}},
    {"owned, steal by the owner",
     owned,
     {.type = Type::STEAL_REQUEST, .address = ownerAddress, .fromOwnersConnection = true},
     {.reply = Type::STEAL_REPLY}},
    {"owned, steal by another port",
     owned,
     {.type = Type::STEAL_REQUEST, .address = otherPort},
     {.stop = Stop::silently, .start = true, .reply = Type::STEAL_REPLY}},

    {"failed, scan by the owner",
     failed,
     {.type = Type::SCAN_REQUEST, .address = ownerAddress, .fromOwnersConnection = true},
     {.reply = Type::SLAVE_FAILED}},
    {"failed, scan by another in the owner's name",
     failed,
     {.type = Type::SCAN_REQUEST, .address = ownerAddress},
     {.reply = Type::DAEMON_STATUS}},
    {"failed, scan by the owner in another's name",
     failed,
     {.type = Type::SCAN_REQUEST, .address = otherIp, .fromOwnersConnection = true},
     {.reply = Type::SLAVE_FAILED}},
    {"failed, start",
     failed,
     {.type = Type::START_REQUEST, .address = otherIp},
     {.reply = Type::START_REPLY}},
    {"failed, stop by the owner",
     failed,
     {.type = Type::STOP_REQUEST, .address = ownerAddress},
     {.stop = Stop::andTellAll, .reply = Type::STOP_REPLY}},
    {"failed, steal",
     failed,
     {.type = Type::STEAL_REQUEST, .address = otherIp},
     {.stop = Stop::silently, .start = true, .reply = Type::STEAL_REPLY}},
};

TEST(OwnershipDecisionTest, EveryRequestInEveryStateIsDecidedAsInTheTable)
{
    for (const auto& row : ownershipTable)
    {
        const auto decision = decideOwnership(row.state, row.request);
        EXPECT_EQ(decision.stop, row.expected.stop) << row.name;
        EXPECT_EQ(decision.start, row.expected.start) << row.name;
        EXPECT_EQ(decision.reply, row.expected.reply) << row.name;
    }
}

TEST(OwnershipDecisionTest, AnAddressWithoutIpOrPortOwnsNothing)
{
    for (const auto& state : freeStates)
        EXPECT_TRUE(
            decideOwnership(state, {.type = Type::START_REQUEST, .address = ownerAddress}).start);
}

TEST(OwnershipDecisionTest, AnyOtherTypeIsUnexpectedInEveryState)
{
    for (const auto& state : {unowned, owned, failed})
        for (const uint32_t type : {1u, 3u, 5u, 6u, 7u, 8u, 9u, 10u, 12u})
            EXPECT_EQ(
                decideOwnership(state, {.type = static_cast<Type>(type), .address = ownerAddress}),
                OwnershipDecision{.reply = Type::UNEXPECTED_REQUEST});
}

} // namespace
} // namespace quelta::test
