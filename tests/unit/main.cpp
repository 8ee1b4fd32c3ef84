// The framework's message manager has to exist for timers and connections, in every test.
#include <gtest/gtest.h>

#include <juce_events/juce_events.h>

#include "platform/Process.h"

int main(int argc, char** argv)
{
    quelta::platform::prepareProcess();
    testing::InitGoogleTest(&argc, argv);
    const juce::ScopedJuceInitialiser_GUI framework;
    return RUN_ALL_TESTS();
}
