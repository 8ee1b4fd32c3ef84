// The registry with fake links and a clock that tests set.
#include "master/MasterRegistry.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>

#include "support/LogCapture.h"

namespace quelta::test {
namespace {

/** The calls of the links, in order, and the surroundings of the registry. */
struct World
{
    Lines events;
    uint32_t now = 0;
    int freeDescriptors = 1'000;
    bool quitRequested = false;
};

constexpr std::array<uint16_t, 3> onePortEach{1, 2, 3};

class FakeLink final : public MasterLink
{
public:
    FakeLink(uint16_t port, World& linkWorld) : address{0x7F000001, port}, world(linkWorld) {}

    const MasterAddress& getAddress() const override { return address; }
    bool isUsable() const override { return usable; }

    bool connectToMaster() override
    {
        world.events.push_back("connect " + std::to_string(address.port));
        world.now += attemptMs;
        usable = reachable;
        return reachable;
    }

    void markIfDeaf(uint32_t now) override
    {
        world.events.push_back("look " + std::to_string(address.port) + " at " +
                               std::to_string(now));
    }

    void send(const MasterDaemonMessage::Bytes&) override
    {
        world.events.push_back("send " + std::to_string(address.port));
    }

    bool usable = false;
    bool reachable = true;
    uint32_t attemptMs = 0;

private:
    const MasterAddress address;
    World& world;
};

class MasterRegistryTest : public testing::Test
{
protected:
    MasterRegistryTest() { flags::daemon = 1; }

    FakeLink& add(uint16_t port)
    {
        auto link = std::make_unique<FakeLink>(port, world);
        auto& added = *link;
        registry.add(std::move(link));
        return added;
    }

    /** Adds a master to which every attempt fails after `attemptMs`. */
    FakeLink& addUnreachable(uint16_t port, uint32_t attemptMs = 1'000)
    {
        auto& link = add(port);
        link.reachable = false;
        link.attemptMs = attemptMs;
        return link;
    }

    Lines takeEvents() { return std::exchange(world.events, {}); }

    static RegistryEnvironment createEnvironment(World& world)
    {
        RegistryEnvironment environment;
        environment.countFreeDescriptors = [&world] { return world.freeDescriptors; };
        environment.quitWasRequested = [&world] { return world.quitRequested; };
        environment.getMilliseconds = [&world] { return world.now; };
        return environment;
    }

    LogCapture log;
    World world;
    MasterRegistry registry{createEnvironment(world)};
};

TEST_F(MasterRegistryTest, ConnectionsAndBroadcastsFollowTheOrderOfAddresses)
{
    for (const auto port : {uint16_t{3}, uint16_t{1}, uint16_t{2}})
        add(port);

    EXPECT_EQ(registry.connect(nullptr), std::vector<MasterAddress>{});
    EXPECT_EQ(takeEvents(), (Lines{"connect 1", "connect 2", "connect 3"}));
    registry.broadcast({});
    EXPECT_EQ(takeEvents(), (Lines{"send 1", "send 2", "send 3"}));
}

TEST_F(MasterRegistryTest, OnlyUnusableLinksAreConnected)
{
    add(1).usable = true;
    add(2);
    registry.connect(nullptr);
    EXPECT_EQ(takeEvents(), Lines{"connect 2"});
    registry.connect(nullptr);
    EXPECT_EQ(takeEvents(), Lines{});
}

TEST_F(MasterRegistryTest, EveryLinkIsCheckedForADeafReaderWithTheTimeOfTheTick)
{
    add(1);
    add(2);
    world.now = 77;
    registry.markDeafLinks();
    EXPECT_EQ(takeEvents(), (Lines{"look 1 at 77", "look 2 at 77"}));
}

TEST_F(MasterRegistryTest, ABroadcastGoesToUnconnectedMastersToo)
{
    add(1);
    registry.broadcast({});
    EXPECT_EQ(takeEvents(), Lines{"send 1"});
}

TEST_F(MasterRegistryTest, FailedAttemptsEndWithTheBudgetAndResumeAfterTheLastOne)
{
    for (const auto port : onePortEach)
        addUnreachable(port, 600);

    EXPECT_EQ(registry.connect(nullptr).size(), 2u);
    EXPECT_EQ(takeEvents(), (Lines{"connect 1", "connect 2"}));
    registry.connect(nullptr);
    EXPECT_EQ(takeEvents(), (Lines{"connect 3", "connect 1"}));
}

TEST_F(MasterRegistryTest, SuccessfulAttemptsDoNotUseTheBudget)
{
    for (const auto port : onePortEach)
        add(port).attemptMs = 900;

    registry.connect(nullptr);
    EXPECT_EQ(takeEvents().size(), 3u);
}

TEST_F(MasterRegistryTest, AttemptsResumeAfterAnUnregisteredMaster)
{
    for (const auto port : onePortEach)
        addUnreachable(port);

    EXPECT_EQ(registry.connect(nullptr),
              std::vector<MasterAddress>{(MasterAddress{0x7F000001, 1})});
    registry.remove({0x7F000001, 1});
    takeEvents();
    registry.connect(nullptr);
    EXPECT_EQ(takeEvents(), Lines{"connect 2"});
}

TEST_F(MasterRegistryTest, ARequestToQuitEndsTheAttempts)
{
    add(1);
    world.quitRequested = true;
    EXPECT_EQ(registry.connect(nullptr), std::vector<MasterAddress>{});
    EXPECT_EQ(takeEvents(), Lines{});
}

TEST_F(MasterRegistryTest, TheDescriptorReserveIsKeptAndReachingItIsOneError)
{
    flags::logPrefix = 1;
    world.freeDescriptors = MasterRegistry::descriptorReserve + 1;

    for (const auto port : onePortEach)
        add(port);

    EXPECT_EQ(registry.connect(nullptr).size(), 2u);
    EXPECT_EQ(takeEvents(), Lines{"connect 1"});
    EXPECT_EQ(
        log.lines(),
        (Lines{"ERROR     : only 16 file descriptors left: no more masters are connected until "
               "some are free",
               "daemon    : not connecting to master 127.0.0.1:2: only 16 file descriptors left",
               "daemon    : not connecting to master 127.0.0.1:3: only 16 file descriptors left"}));
}

TEST_F(MasterRegistryTest, ANewShortageIsAnErrorAgain)
{
    flags::daemon = 0;
    auto& link = add(1);
    world.freeDescriptors = MasterRegistry::descriptorReserve;
    registry.connect(nullptr);
    registry.connect(nullptr);
    EXPECT_EQ(log.lines().size(), 1u);

    world.freeDescriptors = MasterRegistry::descriptorReserve + 1;
    registry.connect(nullptr);
    link.usable = false;
    world.freeDescriptors = MasterRegistry::descriptorReserve;
    registry.connect(nullptr);
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(MasterRegistryTest, TheOwnerMayUseTheReserve)
{
    world.freeDescriptors = 0;
    auto& owner = add(1);
    add(2);
    registry.connect(&owner);
    EXPECT_EQ(takeEvents(), Lines{"connect 1"});
}

TEST_F(MasterRegistryTest, ALinkIsNotKnownByItsAddressAlone)
{
    const FakeLink stranger(1, world);
    EXPECT_FALSE(registry.contains(stranger));
    const auto& link = add(1);
    EXPECT_TRUE(registry.contains(link));
    EXPECT_TRUE(registry.contains(link.getAddress()));
    EXPECT_FALSE(registry.contains(stranger));
}

TEST_F(MasterRegistryTest, ItIsFullAtTenThousandMasters)
{
    for (size_t i = 0; i < MasterRegistry::maxMasters; ++i)
    {
        EXPECT_FALSE(registry.isFull());
        add(static_cast<uint16_t>(i));
    }

    EXPECT_TRUE(registry.isFull());
    EXPECT_EQ(registry.size(), 10'000u);
}

} // namespace
} // namespace quelta::test
