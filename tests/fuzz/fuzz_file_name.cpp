// Two path names, separated by a line feed, parsed and joined. The result keeps the class
// invariants.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "util/FileName.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto cut = std::min(text.find('\n'), text.size());
    const quelta::FileName base(text.substr(0, cut).c_str());
    const quelta::FileName other(text.substr(std::min(cut + 1, text.size())).c_str());
    const auto joined = quelta::FileName::combine(base, other);
    const auto& components = joined.getComponents();

    if (joined.isAbsolute() ? !components.empty() && components.front() == ".."
                            : !joined.getRoot().empty())
        std::abort();

    if (joined.toString().size() > size + 2)
        std::abort();
    return 0;
}
