// A slave's command line, split as the C runtime of Windows does.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "util/CommandLineSplitter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    size_t length = 0;

    for (const auto& argument :
         quelta::splitCommandLine({reinterpret_cast<const char*>(data), size}))
        length += argument.size();

    if (length > size)
        std::abort();
    return 0;
}
