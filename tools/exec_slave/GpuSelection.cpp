#include "exec_slave/Gpus.h"

#include "exec_slave/platform/GpuSystem.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <set>
#include <string_view>

namespace quelta::execslave {
namespace {

constexpr auto cudaVariable = "CUDA_VISIBLE_DEVICES";
constexpr auto rocrVariable = "ROCR_VISIBLE_DEVICES";
constexpr auto hipVariable = "HIP_VISIBLE_DEVICES";

/** More than any node has. Stands for the GPUs of a node whose detection found none. */
constexpr unsigned manyGpus = 1'024;

/** A GPU that a program may see. */
struct VisibleGpu
{
    std::string entry; ///< Its number or UUID in a variable.
    std::string uuid;  ///< Empty if unknown.
};

using VisibleGpus = std::vector<VisibleGpu>;

std::string_view trim(std::string_view text)
{
    constexpr auto blanks = " \t";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::optional<unsigned> parseIndex(std::string_view text)
{
    unsigned index = 0;
    const auto* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, index);
    return result.ec == std::errc() && result.ptr == end ? std::optional(index) : std::nullopt;
}

/** The GPU with this UUID, of which the beginning suffices if it is unambiguous. */
std::optional<VisibleGpu> findUuid(const VisibleGpus& gpus, std::string_view uuid)
{
    const VisibleGpu* found = nullptr;
    auto anyKnown = false;

    for (const auto& gpu : gpus)
    {
        anyKnown |= !gpu.uuid.empty();

        if (!gpu.uuid.starts_with(uuid))
            continue;

        if (found != nullptr)
            return {};

        found = &gpu;
    }

    // Parts of GPUs (MIG) have UUIDs of their own, which are not detected.
    if (uuid.starts_with("MIG-") || (!anyKnown && uuid.starts_with("GPU-")))
        return VisibleGpu{std::string(uuid), std::string(uuid)};

    if (found == nullptr || !uuid.starts_with("GPU-"))
        return {};

    return VisibleGpu{std::string(uuid), found->uuid};
}

/** Applies a variable as the drivers do: its order counts, and the first wrong entry ends it. An
    entry that comes again counts as wrong, since the drivers do not agree on its meaning. */
VisibleGpus narrow(const VisibleGpus& gpus, const std::optional<std::string>& variable)
{
    if (!variable)
        return gpus;

    VisibleGpus left;
    std::set<std::string> seen;
    std::string_view rest = *variable;

    while (!rest.empty())
    {
        const auto comma = std::min(rest.find(','), rest.size());
        const auto entry = trim(rest.substr(0, comma));
        const auto index = parseIndex(entry);
        rest.remove_prefix(std::min(comma + 1, rest.size()));
        std::optional<VisibleGpu> gpu;

        if (index && *index < gpus.size())
            gpu = gpus[*index];
        else if (!index)
            gpu = findUuid(gpus, entry);

        if (!gpu || !seen.insert(gpu->uuid.empty() ? gpu->entry : gpu->uuid).second)
            break;

        left.push_back(*gpu);
    }

    return left;
}

/** All GPUs of the node, as if no variable were set. */
VisibleGpus getAll(const DetectedGpus& detected, size_t count)
{
    VisibleGpus gpus;

    for (size_t i = 0; i < count; ++i)
        gpus.push_back(
            {std::to_string(i), i < detected.uuids.size() ? detected.uuids[i] : std::string()});

    return gpus;
}

/** What HIP itself reads: the one variable, or else the other. */
const std::optional<std::string>& getHipSelection(const InheritedSelection& inherited)
{
    return inherited.hip && !inherited.hip->empty() ? inherited.hip : inherited.cuda;
}

/** On Windows none of AMD's GPUs are detected. */
bool mayBeAmd(const DetectedGpus& detected)
{
    return detected.vendor == GpuVendor::none && !platform::limitsWithRocr();
}

VisibleGpus findVisible(const DetectedGpus& detected, const InheritedSelection& inherited,
                        std::optional<unsigned> configuredCount)
{
    const auto isAmd = detected.vendor == GpuVendor::amd;
    const auto& limit = isAmd || mayBeAmd(detected) ? getHipSelection(inherited) : inherited.cuda;
    auto count = std::max<size_t>(detected.names.size(), configuredCount.value_or(0));

    if (detected.names.empty() && configuredCount && limit)
        count = manyGpus;

    auto gpus = getAll(detected, count);

    if (isAmd && platform::limitsWithRocr())
        gpus = narrow(gpus, inherited.rocr);

    gpus = narrow(gpus, limit);

    if (configuredCount && *configuredCount < gpus.size())
        gpus.resize(*configuredCount);

    return gpus;
}

std::string describeCount(size_t count)
{
    return count == 1 ? "1 GPU" : std::to_string(count) + " GPUs";
}

std::string describeInherited(const DetectedGpus& detected, const InheritedSelection& inherited,
                              size_t visible)
{
    std::string text;

    const auto add = [&](const char* name, const std::optional<std::string>& value) {
        if (value)
            text += std::string(text.empty() ? ", of which " : " and ") + name + "=" + *value;
    };

    add(cudaVariable, inherited.cuda);

    if (detected.vendor != GpuVendor::nvidia)
    {
        add(rocrVariable, inherited.rocr);
        add(hipVariable, inherited.hip);
    }

    return text.empty() ? text : text + " leaves " + std::to_string(visible);
}

/** Empty if all requested GPUs are visible. */
std::string findError(const DetectedGpus& detected, const InheritedSelection& inherited,
                      const std::vector<unsigned>& requested, size_t visible,
                      std::optional<unsigned> configuredCount)
{
    const auto unknown = std::find_if(requested.begin(), requested.end(),
                                      [=](unsigned gpu) { return gpu >= visible; });

    if (unknown == requested.end())
        return {};

    const auto there =
        configuredCount ? "the configuration gives this node " + describeCount(*configuredCount)
        : detected.names.empty() ? "no GPU was found on this node"
                                 : "this node has " + describeCount(detected.names.size()) +
                                       " according to " + detected.source;
    return "there is no GPU " + std::to_string(*unknown + 1ULL) + " (-g " +
           std::to_string(*unknown) + "): " + there +
           describeInherited(detected, inherited, visible);
}

std::map<std::string, std::string> limitTo(const std::string& entries, const DetectedGpus& detected,
                                           const InheritedSelection& inherited)
{
    const auto isAmd = detected.vendor == GpuVendor::amd;

    if (isAmd && platform::limitsWithRocr())
    {
        std::map<std::string, std::string> environment{{rocrVariable, entries}};

        // They would count among the GPUs that are left, and their own limits are in `entries`.
        if (inherited.hip)
            environment[hipVariable] = {};

        if (inherited.cuda)
            environment[cudaVariable] = {};

        return environment;
    }

    if (isAmd)
        return {{hipVariable, entries}};

    std::map<std::string, std::string> environment{{"CUDA_DEVICE_ORDER", "PCI_BUS_ID"},
                                                   {cudaVariable, entries}};

    // On Linux AMD's programs heed CUDA's variable, which would count among the GPUs that another
    // one leaves.
    if (mayBeAmd(detected))
        environment[hipVariable] = entries;

    return environment;
}

std::optional<std::string> readVariable(const char* name)
{
    const auto* const value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

} // namespace

InheritedSelection readInheritedSelection()
{
    return {readVariable(cudaVariable), readVariable(rocrVariable), readVariable(hipVariable)};
}

GpuSelection selectGpus(const DetectedGpus& detected, const InheritedSelection& inherited,
                        const std::vector<unsigned>& requested,
                        std::optional<unsigned> configuredCount)
{
    const auto visible = findVisible(detected, inherited, configuredCount);
    GpuSelection selection;
    selection.error = findError(detected, inherited, requested, visible.size(), configuredCount);

    if (!selection.error.empty())
        return selection;

    for (const auto gpu : requested)
        if (std::find(selection.gpus.begin(), selection.gpus.end(), gpu) == selection.gpus.end())
            selection.gpus.push_back(gpu);

    if (requested.empty())
        for (unsigned gpu = 0; gpu < visible.size(); ++gpu)
            selection.gpus.push_back(gpu);

    std::string entries;

    for (const auto gpu : selection.gpus)
        entries += (entries.empty() ? "" : ",") + visible[gpu].entry;

    // Without GPUs everything stays as it was inherited.
    if (!entries.empty())
        selection.environment = limitTo(entries, detected, inherited);

    return selection;
}

} // namespace quelta::execslave
