#include "platform/Console.h"

#include <juce_core/juce_core.h>

namespace quelta::platform {

namespace {

/** Terminals take bytes, like files. */
class NoConsole final : public Console
{
public:
    bool isRealConsole(StandardStream) override { return false; }
    void write(StandardStream, std::u16string_view) override {}
};

Console* activeConsole = nullptr;

} // namespace

Console& getConsole()
{
    static NoConsole none;
    return activeConsole != nullptr ? *activeConsole : none;
}

void setConsole(Console* replacement)
{
    activeConsole = replacement;
}

void disableConsoleSelection() {}

void restoreConsoleSelection() {}

std::u16string toTerminatedUtf16(const char* utf8)
{
    const auto text = juce::String::fromUTF8(utf8);
    const auto utf16 = text.toUTF16();
    const auto units =
        juce::CharPointer_UTF16::getBytesRequiredFor(text.getCharPointer()) / sizeof(char16_t);
    std::u16string result(units + 1, u'\0');

    for (size_t i = 0; i < units; ++i)
        result[i] = static_cast<char16_t>(utf16.getAddress()[i]);

    return result;
}

} // namespace quelta::platform
