#include "exec_slave/AmdGpus.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

namespace quelta::execslave {
namespace {

using Path = std::filesystem::path;

constexpr auto computeNodes = "class/kfd/kfd/topology/nodes";
constexpr auto graphicsDevices = "class/drm";

constexpr uint64_t amdVendor = 0x1002;

std::string readFile(const Path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/** The first line of a file, without blanks at its end. */
std::string readLine(const Path& file)
{
    auto text = readFile(file);
    text.erase(std::min(text.find('\n'), text.size()));
    text.erase(text.find_last_not_of(" \t\r") + 1);
    return text;
}

std::optional<uint64_t> parseNumber(std::string_view text, int base = 10)
{
    uint64_t number = 0;
    const auto* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, base);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

/** Parses the form 0x1002. */
std::optional<uint64_t> parseHex(std::string_view text)
{
    return text.starts_with("0x") ? parseNumber(text.substr(2), 16) : std::nullopt;
}

/** The folders directly in `parent` whose names are `prefix` and a number, by that number. */
std::map<uint64_t, Path> findNumbered(const Path& parent, std::string_view prefix)
{
    std::map<uint64_t, Path> found;
    std::error_code error;
    std::filesystem::directory_iterator entry(parent, error);

    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
    {
        const auto name = entry->path().filename().string();

        if (name.starts_with(prefix))
            if (const auto number = parseNumber(std::string_view(name).substr(prefix.size())))
                found[*number] = entry->path();
    }

    return found;
}

/** Reads lines of the form "simd_count 120". */
std::map<std::string, uint64_t> readProperties(const Path& file)
{
    std::map<std::string, uint64_t> properties;
    std::istringstream text(readFile(file));
    std::string name;
    std::string value;

    while (text >> name >> value)
        if (const auto number = parseNumber(value))
            properties[name] = *number;

    return properties;
}

std::string formatUuid(uint64_t id)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "GPU-%016llx", static_cast<unsigned long long>(id));
    return id == 0 ? std::string() : text.data();
}

/** Processors are nodes too, but have no SIMD units. The properties of a GPU that this process may
    not use cannot be read, and programs are not given it either. */
void addComputeNode(const Path& node, GpuReport& report)
{
    auto properties = readProperties(node / "properties");

    if (properties["simd_count"] == 0 || properties["vendor_id"] != amdVendor)
        return;

    const auto name = toPrintableText(readLine(node / "name"));
    report.names.push_back(name.empty() ? "AMD GPU" : "AMD " + name);
    report.uuids.push_back(formatUuid(properties["unique_id"]));
}

GpuReport readGraphicsDevices(const Path& folder)
{
    std::map<std::string, std::string> names; // by the place on the PCI bus

    for (const auto& [number, card] : findNumbered(folder, "card"))
    {
        const auto device = card / "device";

        if (parseHex(readLine(device / "vendor")) != amdVendor)
            continue;

        std::error_code error;
        const auto place = std::filesystem::canonical(device, error).filename().string();
        names[place + '/' + std::to_string(number)] =
            "AMD GPU " + toPrintableText(readLine(device / "device"));
    }

    GpuReport report;

    for (const auto& [place, name] : names)
        report.names.push_back(name);

    report.uuids.resize(names.size());
    return report;
}

} // namespace

bool mayHaveAmdGpus(const Path& sys)
{
    return !findNumbered(sys / computeNodes, "").empty() ||
           !findNumbered(sys / graphicsDevices, "card").empty();
}

GpuReport readAmdGpus(const Path& sys)
{
    GpuReport report;
    const auto nodes = findNumbered(sys / computeNodes, "");

    for (const auto& [number, node] : nodes)
        addComputeNode(node, report);

    if (nodes.empty())
        report = readGraphicsDevices(sys / graphicsDevices);

    report.state = GpuReport::State::answered;
    return report;
}

} // namespace quelta::execslave
