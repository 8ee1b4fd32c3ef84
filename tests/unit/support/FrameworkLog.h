// Records what the framework itself has to say while it lives: that it killed a thread by force
// and, in debug builds, that one of its assertions failed. Neither may ever happen.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <juce_core/juce_core.h>

namespace quelta::test {

class FrameworkLog final : public juce::Logger
{
public:
    FrameworkLog() : previous(getCurrentLogger()) { setCurrentLogger(this); }
    ~FrameworkLog() override { setCurrentLogger(previous); }

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
