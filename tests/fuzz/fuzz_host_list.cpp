// A list of nodes for the console master.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "console_master/HostList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<quelta::NodeName> nodes;
    const std::string text(reinterpret_cast<const char*>(data), size);
    quelta::parseAddress(text);

    if (!quelta::addNodes(text, nodes).empty())
        return 0;

    for (const auto& node : nodes)
        if (quelta::parseNode(quelta::formatNode(node)) != node)
            std::abort();
    return 0;
}
