// Runs the tests with a message manager, which JUCE's timers and connections need.
#include <gtest/gtest.h>

#include <juce_events/juce_events.h>

#include "exec_slave/Gpus.h"
#include "platform/Process.h"

int main(int argc, char** argv)
{
    quelta::platform::prepareProcess();

    if (argc == 3 && argv[1] == std::string_view(quelta::execslave::gpuDetectionOption))
        quelta::execslave::runGpuDetection(argv[2]); // the detection runs this program again

    testing::InitGoogleTest(&argc, argv);
    const juce::ScopedJuceInitialiser_GUI messageManager;
    return RUN_ALL_TESTS();
}
