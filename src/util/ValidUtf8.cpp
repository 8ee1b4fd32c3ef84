#include "util/ValidUtf8.h"

#include <juce_core/juce_core.h>

namespace quelta {

std::string toValidUtf8(std::string_view bytes)
{
    bytes = bytes.substr(0, bytes.find('\0'));

    if (juce::CharPointer_UTF8::isValidString(bytes.data(), static_cast<int>(bytes.size())))
        return std::string(bytes);

    std::string text;

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
