#include "farm_view/FarmModel.h"

#include <gtest/gtest.h>

#include "support/FarmView.h"

namespace quelta::farmview {

namespace {

using namespace std::chrono_literals;

class FarmViewModel : public testing::Test
{
protected:
    const NodeRecord& record() const { return model.getNodes().at("a:1"); }

    void pass(std::chrono::milliseconds duration) { now += duration; }

    Time now = sampleTime();
    FarmModel model{now};
};

TEST_F(FarmViewModel, ReportsOnlyRealChanges)
{
    EXPECT_TRUE(model.update(freeNode(), now));
    EXPECT_FALSE(model.update(freeNode(), now));
    EXPECT_TRUE(model.update(ownedNode(), now));
    EXPECT_EQ(record().counters.changes, 1U);
    EXPECT_EQ(record().status, ownedNode());
}

TEST_F(FarmViewModel, StateBeginsWithAChangeOfStateOrOwner)
{
    model.update(freeNode(), now);
    const auto begin = now;
    pass(10s);

    auto renamed = freeNode();
    renamed.slave->alias = "other";
    model.update(renamed, now);
    EXPECT_EQ(record().since, begin);
    EXPECT_EQ(record().lastChange, now);

    pass(10s);
    model.update(ownedNode(21000), now);
    EXPECT_EQ(record().since, now);

    pass(10s);
    model.update(ownedNode(21001), now);
    EXPECT_EQ(record().since, now);
    EXPECT_EQ(record().lastChange, now);
}

TEST_F(FarmViewModel, NewTextOfTheOwnerIsRecordedInTheSameState)
{
    model.update(ownedNode(), now);
    const auto begin = now;
    pass(1s);
    auto status = ownedNode();
    status.owner->text = "other";
    model.update(status, now);

    EXPECT_EQ(record().since, begin);
    ASSERT_EQ(record().history.getChanges().size(), 2U);
    EXPECT_EQ(record().history.getChanges()[1].getOwner(), status.owner);
    EXPECT_EQ(record().counters.steals, 0U);
}

TEST_F(FarmViewModel, CountsStealsFromOneOwnerToAnother)
{
    model.update(ownedNode(21000), now);
    model.update(ownedNode(21001), now);
    model.update(freeNode(), now);
    model.update(ownedNode(21000), now);
    EXPECT_EQ(record().counters.steals, 1U);
}

TEST_F(FarmViewModel, NewOwnerAfterALostConnectionIsNoSteal)
{
    model.update(ownedNode(21000), now);
    model.update(lostNode(makeOwner(21000)), now);
    model.update(ownedNode(21001), now);
    EXPECT_EQ(record().counters.steals, 0U);
    EXPECT_EQ(record().counters.lostConnections, 1U);
}

TEST_F(FarmViewModel, CountsLostConnectionsOnce)
{
    model.update(freeNode(), now);
    model.update(lostNode(), now);
    auto status = lostNode();
    status.slave->alias = "other";
    model.update(status, now);
    model.update(freeNode(), now);
    model.update(lostNode(), now);
    EXPECT_EQ(record().counters.lostConnections, 2U);
}

TEST_F(FarmViewModel, CountsShortOwnershipsAsFailures)
{
    model.update(freeNode(), now);
    model.update(ownedNode(), now);
    pass(29999ms);
    model.update(freeNode(), now);
    EXPECT_EQ(record().counters.failures, 1U);

    model.update(ownedNode(), now);
    pass(30s);
    model.update(freeNode(), now);
    EXPECT_EQ(record().counters.failures, 1U);
}

TEST_F(FarmViewModel, OwnershipThatBeganUnseenIsNoFailure)
{
    model.update(ownedNode(), now);
    model.update(freeNode(), now);
    EXPECT_EQ(record().counters.failures, 0U);

    model.update(lostNode(), now);
    model.update(ownedNode(), now);
    model.update(freeNode(), now);
    EXPECT_EQ(record().counters.failures, 0U);
}

TEST_F(FarmViewModel, LostNodeThatWasOwnedIsNoFailure)
{
    model.update(freeNode(), now);
    model.update(ownedNode(), now);
    model.update(lostNode(), now);
    model.update(freeNode(), now);
    EXPECT_EQ(record().counters.failures, 0U);
}

TEST_F(FarmViewModel, RoundTripsOfUnknownNodesAreIgnored)
{
    model.addRoundTrip("a:1", 5ms);
    EXPECT_EQ(model.getRoundTrips().getCount(), 0U);

    model.update(freeNode(), now);
    EXPECT_EQ(record().roundTrip, std::nullopt);
    model.addRoundTrip("a:1", 5ms);
    model.addRoundTrip("a:1", 7ms);
    EXPECT_EQ(record().roundTrip, RoundTripHistogram::Duration(7ms));
    EXPECT_EQ(model.getRoundTrips().getCount(), 2U);
}

TEST_F(FarmViewModel, RemovedNodeBeginsAnew)
{
    model.update(freeNode(), now);
    model.update(ownedNode(), now);
    EXPECT_TRUE(model.remove("a:1"));
    EXPECT_FALSE(model.remove("a:1"));
    EXPECT_TRUE(model.getNodes().empty());

    model.update(ownedNode(), now);
    EXPECT_EQ(record().counters.changes, 0U);
    EXPECT_EQ(record().history.getChanges().size(), 1U);
}

TEST_F(FarmViewModel, HistoryBeginsWithTheViewOrADayAgo)
{
    EXPECT_EQ(model.historyBegin(now + 1h), now);
    EXPECT_EQ(model.historyBegin(now + 25h), now + 1h);
}

TEST(FarmViewHistory, KeepsTheStateAtTheBeginningOfTheDay)
{
    NodeHistory history;
    const auto start = sampleTime();
    history.add({start, NodeState::waiting, {}});
    history.add({start + 1h, NodeState::free, {}});
    history.add({start + 2h, NodeState::owned, makeOwner(21000)});

    history.expire(start + 25h - 1ms);
    EXPECT_EQ(history.getChanges().size(), 3U);
    history.expire(start + 25h);
    ASSERT_EQ(history.getChanges().size(), 2U);
    EXPECT_EQ(history.getChanges()[0].getState(), NodeState::free);
    history.expire(start + 100h);
    ASSERT_EQ(history.getChanges().size(), 1U);
    EXPECT_EQ(history.getChanges()[0].getState(), NodeState::owned);
    EXPECT_EQ(history.getChanges()[0].getTime(), start + 2h);
}

TEST(FarmViewHistory, DropsTheOldestBeyondTheMaximum)
{
    NodeHistory history;
    const auto start = sampleTime();

    for (int i = 0; i < 1025; ++i)
        history.add({start + std::chrono::milliseconds(i), NodeState::free, {}});

    EXPECT_EQ(history.getChanges().size(), 1024U);
    EXPECT_EQ(history.getChanges().front().getTime(), start + 1ms);
    EXPECT_EQ(history.getChanges().back().getTime(), start + 1024ms);
}

TEST(FarmViewHistory, ReturnsTheOwnerAsGiven)
{
    const Owner longest{{0x7F000001, 65535}, std::string(32, 'x')};
    EXPECT_EQ(Change(sampleTime(), NodeState::owned, longest).getOwner(), longest);
    const Owner nameless{{0x7F000001, 1}, ""};
    EXPECT_EQ(Change(sampleTime(), NodeState::owned, nameless).getOwner(), nameless);
    EXPECT_EQ(Change(sampleTime(), NodeState::free, {}).getOwner(), std::nullopt);
}

TEST(FarmViewHistogram, CountsUpToEachLimit)
{
    RoundTripHistogram histogram;
    histogram.add(500us);
    histogram.add(501us);
    histogram.add(5s);
    histogram.add(6s);
    EXPECT_EQ(histogram.countUpTo(0), 1U);
    EXPECT_EQ(histogram.countUpTo(1), 2U);
    EXPECT_EQ(histogram.countUpTo(11), 2U);
    EXPECT_EQ(histogram.countUpTo(12), 3U);
    EXPECT_EQ(histogram.getCount(), 4U);
    EXPECT_DOUBLE_EQ(histogram.getSumSeconds(), 11.001001);
}

} // namespace

} // namespace quelta::farmview
