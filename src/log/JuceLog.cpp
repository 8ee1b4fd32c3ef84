#include "log/JuceLog.h"

#include "log/Log.h"

namespace quelta {

JuceLog& JuceLog::get()
{
    static auto* const juceLog = new JuceLog;
    return *juceLog;
}

void JuceLog::logMessage(const juce::String& message)
{
    logString("JUCE", message);
}

} // namespace quelta
