// A memory size. It keeps its sign, however large the number.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "app/CommandLine.h"
#include "util/LeadingInteger.h"
#include "util/ValidUtf8.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto bytes = quelta::toValidUtf8({reinterpret_cast<const char*>(data), size});
    const auto text = juce::String::fromUTF8(bytes.c_str());
    const auto result = quelta::parseMemorySize(text);
    const auto number = quelta::parseLeadingInt64(text.toRawUTF8());

    if ((number < 0) != (result < 0) || (number == 0) != (result == 0))
        std::abort();
    return 0;
}
