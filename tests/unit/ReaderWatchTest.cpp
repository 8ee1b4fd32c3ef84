#include "util/ReaderWatch.h"

#include <gtest/gtest.h>

namespace quelta::test {
namespace {

constexpr ReaderObservation nothingPending{};
constexpr ReaderObservation unread{.inputPending = true, .bytesTaken = 100, .deliveries = 1};
constexpr auto readerLimit = ReaderWatch::limitMs;

TEST(ReaderWatchTest, InputThatWaitsForTheLimitMeansADeadReader)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 5'000));
    EXPECT_FALSE(watch.isDead(unread, 5'000 + readerLimit - 1));
    EXPECT_TRUE(watch.isDead(unread, 5'000 + readerLimit));
}

TEST(ReaderWatchTest, AConnectionWithoutInputIsNeverDead)
{
    ReaderWatch watch;

    for (uint32_t now = 0; now < 10 * readerLimit; now += readerLimit)
        EXPECT_FALSE(watch.isDead(nothingPending, now));
}

TEST(ReaderWatchTest, InputThatIsReadRestartsTheWait)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 0));
    EXPECT_FALSE(watch.isDead(nothingPending, readerLimit));
    EXPECT_FALSE(watch.isDead(unread, 2 * readerLimit));
    EXPECT_TRUE(watch.isDead(unread, 3 * readerLimit));
}

TEST(ReaderWatchTest, AReaderThatKeepsReadingALargeFrameIsAlive)
{
    ReaderWatch watch;
    auto seen = unread;

    for (uint32_t now = 0; now < 10 * readerLimit; now += readerLimit)
    {
        seen.bytesTaken += 1;
        EXPECT_FALSE(watch.isDead(seen, now));
    }
}

TEST(ReaderWatchTest, AReaderThatKeepsDeliveringMessagesIsAlive)
{
    ReaderWatch watch;
    auto seen = unread;

    for (uint32_t now = 0; now < 10 * readerLimit; now += readerLimit)
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
    EXPECT_FALSE(watch.isDead(busy, 10 * readerLimit));
    EXPECT_FALSE(watch.isDead(unread, 11 * readerLimit));
    EXPECT_TRUE(watch.isDead(unread, 12 * readerLimit));
}

TEST(ReaderWatchTest, TheClockMayWrapAroundDuringTheWait)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 0xFFFFFFFF));
    EXPECT_FALSE(watch.isDead(unread, readerLimit - 2));
    EXPECT_TRUE(watch.isDead(unread, readerLimit - 1));
}

TEST(ReaderWatchTest, ANewConnectionStartsWithoutAWait)
{
    ReaderWatch watch;
    EXPECT_FALSE(watch.isDead(unread, 0));
    watch.reset();
    EXPECT_FALSE(watch.isDead(unread, readerLimit));
}

} // namespace
} // namespace quelta::test
