#include "util/ValidUtf8.h"

#include <juce_core/juce_core.h>

namespace quelta {

bool isValidUtf8(const std::string& text)
{
    // JUCE's check accepts overlong forms. Its strings are sized for the shortest form and
    // overflow.
    return juce::CharPointer_UTF8::isValidString(text.c_str(), static_cast<int>(text.size())) &&
           juce::CharPointer_UTF8::getBytesRequiredFor(juce::CharPointer_UTF8(text.c_str())) ==
               text.size();
}

std::string toValidUtf8(std::string_view bytes)
{
    bytes = bytes.substr(0, bytes.find('\0'));

    std::string text(bytes);

    if (isValidUtf8(text))
        return text;

    text.clear();

    for (const auto byte : bytes)
    {
        const auto character = static_cast<unsigned char>(byte);

        if (character < 0x80)
        {
            text += byte;
            continue;
        }

        text += static_cast<char>(0xC0 | (character >> 6));
        text += static_cast<char>(0x80 | (character & 0x3F));
    }

    return text;
}

} // namespace quelta
