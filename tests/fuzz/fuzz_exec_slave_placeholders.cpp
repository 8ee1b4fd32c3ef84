// A text with placeholders. One without braces, or with all braces doubled, keeps its meaning.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "exec_slave/Placeholders.h"

using namespace quelta::execslave;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    PlaceholderValues values;
    values.alias = "{alias}";
    values.masterPort = 65535;
    values.gpus = {0, 1};
    expandPlaceholders(text, values);

    if (findPlaceholderError(text).find('\n') != std::string::npos)
        std::abort();

    std::string doubled;

    for (const auto c : text)
        doubled.append(c == '{' || c == '}' ? 2 : 1, c);

    if (!findPlaceholderError(doubled).empty() || expandPlaceholders(doubled, values) != text)
        std::abort();
    return 0;
}
