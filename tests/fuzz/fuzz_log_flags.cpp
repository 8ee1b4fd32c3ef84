// The text of a flags file.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "log/LogFlags.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    quelta::setLogFlagsFromText({reinterpret_cast<const char*>(data), size});
    return 0;
}
