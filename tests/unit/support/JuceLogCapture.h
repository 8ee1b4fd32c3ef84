// Captures what JUCE logs: that it killed a thread by force and, in debug builds, that one of its
// assertions failed. Tests expect neither.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <juce_core/juce_core.h>

namespace quelta::test {

class JuceLogCapture final : public juce::Logger
{
public:
    JuceLogCapture() : previous(getCurrentLogger()) { setCurrentLogger(this); }
    ~JuceLogCapture() override { setCurrentLogger(previous); }

    std::vector<std::string> getMessages() const
    {
        const std::lock_guard guard(lock);
        return messages;
    }

private:
    void logMessage(const juce::String& message) override
    {
        const std::lock_guard guard(lock);
        messages.push_back(message.toStdString());
    }

    juce::Logger* const previous;
    mutable std::mutex lock; ///< Guards `messages`.
    std::vector<std::string> messages;
};

} // namespace quelta::test
