// Runs the tests with a message manager, which JUCE's timers and connections need.
#include <gtest/gtest.h>

#include <juce_events/juce_events.h>

#include "platform/Process.h"

int main(int argc, char** argv)
{
    quelta::platform::prepareProcess();
    testing::InitGoogleTest(&argc, argv);
    const juce::ScopedJuceInitialiser_GUI messageManager;
    return RUN_ALL_TESTS();
}
