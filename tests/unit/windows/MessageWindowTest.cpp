#include "platform/MessageWindow.h"

#include <gtest/gtest.h>

#include <windows.h>

#include "platform/AwakeClock.h"
#include "util/StopDeadline.h"

namespace quelta::test {
namespace {

BOOL CALLBACK noteJuceWindow(HWND window, LPARAM found)
{
    wchar_t title[32] = {};
    GetWindowTextW(window, title, 31);

    if (wcscmp(title, L"JUCEWindow") == 0)
        *reinterpret_cast<HWND*>(found) = window;

    return TRUE;
}

class MessageWindowTest : public testing::Test
{
protected:
    MessageWindowTest()
    {
        EnumThreadWindows(GetCurrentThreadId(), noteJuceWindow, reinterpret_cast<LPARAM>(&window));
        EXPECT_TRUE(platform::guardMessageWindow([this] { ++timesEnded; }));
    }

    ~MessageWindowTest() override
    {
        platform::releaseMessageWindow();
        setStopDeadline({});
    }

    HWND window = nullptr;
    int timesEnded = 0;
};

TEST_F(MessageWindowTest, ARequestToCloseDoesNotDestroyTheWindow)
{
    EXPECT_EQ(SendMessageW(window, WM_CLOSE, 0, 0), 0);
    EXPECT_TRUE(IsWindow(window));
    EXPECT_EQ(timesEnded, 0);
}

TEST_F(MessageWindowTest, EndingTheSessionIsAllowed)
{
    EXPECT_EQ(SendMessageW(window, WM_QUERYENDSESSION, 0, 0), TRUE);
    EXPECT_EQ(timesEnded, 0);
    EXPECT_FALSE(hasStopDeadlinePassed());
}

TEST_F(MessageWindowTest, ACancelledEndOfTheSessionDoesNotQuit)
{
    EXPECT_EQ(SendMessageW(window, WM_ENDSESSION, FALSE, 0), 0);
    EXPECT_EQ(timesEnded, 0);
}

TEST_F(MessageWindowTest, TheShutdownIsCompleteWhenTheEndOfTheSessionIsAnswered)
{
    EXPECT_EQ(SendMessageW(window, WM_ENDSESSION, TRUE, 0), 0);
    EXPECT_EQ(timesEnded, 1);
    EXPECT_EQ(SendMessageW(window, WM_ENDSESSION, TRUE, 0), 0);
    EXPECT_EQ(timesEnded, 1);
}

TEST_F(MessageWindowTest, AReleasedWindowIsHandledByJuce)
{
    platform::releaseMessageWindow();
    SendMessageW(window, WM_ENDSESSION, TRUE, 0);
    EXPECT_EQ(timesEnded, 0);
}

} // namespace
} // namespace quelta::test
