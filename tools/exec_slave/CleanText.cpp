#include "exec_slave/CleanText.h"

#include "util/ValidUtf8.h"

namespace quelta::execslave {

namespace {

constexpr char replacement = '?';

bool isControl(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return (byte < 0x20 && byte != '\t') || byte == 0x7F;
}

} // namespace

std::string cleanText(std::string_view bytes)
{
    std::string ascii(bytes);

    for (auto& character : ascii)
        if (isControl(character))
            character = replacement;

    const auto text = toValidUtf8(ascii);
    std::string clean;
    clean.reserve(text.size());

    for (size_t i = 0; i < text.size(); ++i)
    {
        // U+0080 to U+009F are controls too: terminals take U+009B for the start of a sequence.
        const bool isTwoByteControl = text[i] == '\xC2' && i + 1 < text.size() &&
                                      static_cast<unsigned char>(text[i + 1]) < 0xA0;
        clean += isTwoByteControl ? replacement : text[i];

        if (isTwoByteControl)
            ++i;
    }

    return clean;
}

} // namespace quelta::execslave
