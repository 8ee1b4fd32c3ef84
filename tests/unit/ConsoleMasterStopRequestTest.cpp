#include "console_master/StopRequest.h"

#include <chrono>

#include <gtest/gtest.h>

namespace quelta::test {
namespace {

TEST(ConsoleMasterStopRequest, SignalsWithinASecondAreOneRequestAndALaterOneEndsTheProgram)
{
    using std::chrono::milliseconds;
    StopRequest request;
    EXPECT_FALSE(request.isPending());
    EXPECT_TRUE(request.receive(milliseconds(0)));
    EXPECT_TRUE(request.isPending());
    EXPECT_TRUE(request.receive(milliseconds(0)));
    EXPECT_TRUE(request.receive(milliseconds(999)));
    EXPECT_FALSE(request.receive(milliseconds(1000)));
    EXPECT_FALSE(request.receive(milliseconds(3600000)));
    EXPECT_TRUE(request.isPending());
}

} // namespace
} // namespace quelta::test
