#include "util/ReaderWatch.h"

#include <gtest/gtest.h>

namespace quelta::test {
namespace {

constexpr ReaderObservation nothingPending{};
constexpr ReaderObservation unread{.inputPending = true, .bytesTaken = 100, .deliveries = 1};
constexpr auto limit = ReaderWatch::limitMs;

TEST(ReaderWatchTest, InputThatWaitsForTheLimitMeansADeadReader)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 5'000));
    EXPECT_FALSE(watch.isDead(unread, 5'000 + limit - 1));
    EXPECT_TRUE(watch.isDead(unread, 5'000 + limit));
}

TEST(ReaderWatchTest, AConnectionWithoutInputIsNeverDead)
{
    ReaderWatch watch;

    for (uint32_t now = 0; now < 10 * limit; now += limit)
        EXPECT_FALSE(watch.isDead(nothingPending, now));
}

TEST(ReaderWatchTest, InputThatIsReadRestartsTheWait)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 0));
    EXPECT_FALSE(watch.isDead(nothingPending, limit));
    EXPECT_FALSE(watch.isDead(unread, 2 * limit));
    EXPECT_TRUE(watch.isDead(unread, 3 * limit));
}

TEST(ReaderWatchTest, AReaderThatKeepsReadingALargeFrameIsAlive)
{
    ReaderWatch watch;
    auto seen = unread;

    for (uint32_t now = 0; now < 10 * limit; now += limit)
    {
        seen.bytesTaken += 1;
        EXPECT_FALSE(watch.isDead(seen, now));
    }
}

TEST(ReaderWatchTest, AReaderThatKeepsDeliveringMessagesIsAlive)
{
    ReaderWatch watch;
    auto seen = unread;

    for (uint32_t now = 0; now < 10 * limit; now += limit)
    {
        ++seen.deliveries;
        EXPECT_FALSE(watch.isDead(seen, now));
    }
}

TEST(ReaderWatchTest, AReaderThatIsBusyWithAMessageIsAlive)
{
    ReaderWatch watch;
    auto busy = unread;
    busy.delivering = true;
    EXPECT_FALSE(watch.isDead(busy, 0));
    EXPECT_FALSE(watch.isDead(busy, 10 * limit));
    EXPECT_FALSE(watch.isDead(unread, 11 * limit));
    EXPECT_TRUE(watch.isDead(unread, 12 * limit));
}

TEST(ReaderWatchTest, TheClockMayWrapAroundDuringTheWait)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 0xFFFFFFFF));
    EXPECT_FALSE(watch.isDead(unread, limit - 2));
    EXPECT_TRUE(watch.isDead(unread, limit - 1));
}

TEST(ReaderWatchTest, ANewConnectionStartsWithoutAWait)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 0));
    watch.reset();
    EXPECT_FALSE(watch.isDead(unread, limit));
}

} // namespace
} // namespace quelta::test
