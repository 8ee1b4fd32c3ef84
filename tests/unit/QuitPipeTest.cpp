#include <gtest/gtest.h>

#include "platform/QuitSignals.h"
#include "support/Descriptors.h"

namespace quelta {

TEST(QuitPipeTest, StaysOpenForHandlersThatRunDuringTheReset)
{
    if (!test::descriptorsCanBeCounted())
        GTEST_SKIP() << "this system shows no descriptors";

    EXPECT_EQ(platform::installQuitHandlers(nullptr), 0);
    const auto whileInstalled = test::countDescriptors();
    platform::resetQuitHandlers();
    EXPECT_EQ(test::countDescriptors(), whileInstalled);

    EXPECT_EQ(platform::installQuitHandlers(nullptr), 0);
    EXPECT_EQ(test::countDescriptors(), whileInstalled) << "another pipe was made";
    platform::resetQuitHandlers();
}

} // namespace quelta
