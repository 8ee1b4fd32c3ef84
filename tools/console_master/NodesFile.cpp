#include "console_master/NodesFile.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace quelta {

NodesFileReading readNodesFile(const std::string& name)
{
    const std::filesystem::path path(std::u8string(name.begin(), name.end()));
    std::error_code ignored;

    // Linux opens a folder like a file; reading it then throws.
    if (std::filesystem::is_directory(path, ignored))
        return {{}, "it is a folder"};

    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::array<char, 4096> piece;
    NodesFileReading reading;

    while (file.is_open() && (file.read(piece.data(), piece.size()) || file.gcount() > 0))
        reading.text.append(piece.data(), static_cast<size_t>(file.gcount()));

    if (!file.is_open() || file.bad())
        reading.error = std::generic_category().message(errno);

    return reading;
}

std::string addNodesOfFile(const std::string& name, const NodesFileReading& reading,
                           std::vector<NodeName>& nodes)
{
    if (!reading.error.empty())
        return "cannot read the file of nodes \"" + name + "\": " + reading.error;

    if (const auto error = addNodes(reading.text, nodes); !error.empty())
        return name + ": " + error;

    return {};
}

} // namespace quelta
