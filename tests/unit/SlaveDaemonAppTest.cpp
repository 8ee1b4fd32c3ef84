#include "app/SlaveDaemonApp.h"

#include <gtest/gtest.h>

namespace quelta::test {
namespace {

/** The message loop of a message manager cannot be restarted, so the destructor creates a new
    manager. */
class SlaveDaemonAppTest : public testing::Test
{
protected:
    SlaveDaemonAppTest()
    {
        juce::JUCEApplicationBase::createInstance = [] {
            return static_cast<juce::JUCEApplicationBase*>(nullptr);
        };
    }

    ~SlaveDaemonAppTest() override
    {
        juce::JUCEApplicationBase::createInstance = nullptr;
        juce::MessageManager::deleteInstance();
        juce::MessageManager::getInstance();
    }
};

TEST_F(SlaveDaemonAppTest, AQuitRequestOfTheSystemEndsTheMessageLoop)
{
    SlaveDaemonApp app;
    auto& messages = *juce::MessageManager::getInstance();
    ASSERT_FALSE(messages.hasStopMessageBeenSent());
    app.systemRequestedQuit();
    ASSERT_TRUE(messages.hasStopMessageBeenSent());
    messages.runDispatchLoop();
}

} // namespace
} // namespace quelta::test
