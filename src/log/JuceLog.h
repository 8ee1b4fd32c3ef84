// Passes the log messages of JUCE on to the log, with the prefix "JUCE". Any thread.
#pragma once

#include <juce_core/juce_core.h>

namespace quelta {

class JuceLog final : public juce::Logger
{
public:
    /** Returns the instance that initLog installs. Never destroyed: JUCE may log until the process
        ends, and asserts that its current logger outlives it. */
    static JuceLog& get();

    void logMessage(const juce::String& message) override;
};

} // namespace quelta
