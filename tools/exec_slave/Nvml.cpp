#include "exec_slave/Nvml.h"

#include "exec_slave/platform/SharedLibrary.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace quelta::execslave {
namespace {

// What is needed of NVML's documented interface.
using Result = int;
using Device = void*;

constexpr Result success = 0;
constexpr unsigned maxGpus = 1'024; ///< More than any node has.
constexpr size_t textSize = 96;     ///< Enough for every name and UUID.

struct PciInfo
{
    std::array<char, 16> legacyId;
    unsigned domain;
    unsigned bus;
    unsigned device;
    unsigned deviceId;
    unsigned subsystemId;
    std::array<char, 32> id;
    std::array<char, 64> spare; ///< Later versions of the library may write more.
};

using GetText = Result (*)(Device, char*, unsigned);

class Library
{
public:
    explicit Library(const std::string& name) : handle(platform::loadLibrary(name, error)) {}

    bool isLoaded() const { return handle != nullptr; }
    const std::string& getError() const { return error; }

    /** Calls a function of the library that returns a result. Notes a failure. */
    template <typename... Arguments>
    bool call(const char* function, const std::string& what, Arguments... arguments)
    {
        using Function = Result (*)(Arguments...);
        auto* const address = platform::findFunction(handle, function);

        if (address == nullptr)
        {
            error = what + ": the library has no function " + function;
            return false;
        }

        const auto result = reinterpret_cast<Function>(address)(arguments...);

        if (result != success)
            error = what + ": " + function + " failed: " + describe(result);

        return result == success;
    }

private:
    std::string describe(Result result) const
    {
        using Describe = const char* (*)(Result);
        const auto number = "error " + std::to_string(result);
        auto* const address = platform::findFunction(handle, "nvmlErrorString");
        const auto* text =
            address == nullptr ? nullptr : reinterpret_cast<Describe>(address)(result);
        return text == nullptr ? number : number + " (" + toPrintableText(text) + ")";
    }

    std::string error;
    void* handle;
};

struct Gpu
{
    std::tuple<unsigned, unsigned, unsigned> place; ///< On the PCI bus.
    std::string name;
    std::string uuid;
};

std::string getText(Library& library, const char* function, const std::string& what, Device device)
{
    std::array<char, textSize + 1> text{}; // stays terminated
    library.call(function, what, device, text.data(), static_cast<unsigned>(textSize));
    return text.data();
}

/** A GPU that fails, such as one that fell off the bus, is left out, as CUDA does. */
std::optional<Gpu> readGpu(Library& library, unsigned index)
{
    const auto what = "NVML, GPU " + std::to_string(index);
    Device device = nullptr;

    if (!library.call("nvmlDeviceGetHandleByIndex_v2", what, index, &device))
        return {};

    Gpu gpu;
    PciInfo pci{};
    gpu.name = getText(library, "nvmlDeviceGetName", what, device);
    gpu.uuid = getText(library, "nvmlDeviceGetUUID", what, device);

    if (library.call("nvmlDeviceGetPciInfo_v3", what, device, &pci))
        gpu.place = {pci.domain, pci.bus, pci.device};

    return gpu;
}

/** In the order of the PCI bus. */
std::vector<Gpu> readGpus(Library& library, unsigned count, std::vector<std::string>& notes)
{
    std::vector<Gpu> gpus;

    for (unsigned index = 0; index < count; ++index)
    {
        if (auto gpu = readGpu(library, index))
            gpus.push_back(std::move(*gpu));
        else
            notes.push_back(library.getError());
    }

    std::stable_sort(gpus.begin(), gpus.end(),
                     [](const Gpu& left, const Gpu& right) { return left.place < right.place; });
    return gpus;
}

} // namespace

GpuReport readNvml(const std::string& libraryName)
{
    GpuReport report;
    Library library(libraryName);
    unsigned count = 0;

    if (!library.isLoaded())
        report.state = GpuReport::State::absent;
    else if (library.call("nvmlInit_v2", "NVML") &&
             library.call("nvmlDeviceGetCount_v2", "NVML", &count))
        report.state = GpuReport::State::answered;

    if (report.state != GpuReport::State::answered)
    {
        report.notes.push_back(library.getError());
        return report;
    }

    if (count > maxGpus)
    {
        report.state = GpuReport::State::failed;
        report.notes.push_back("NVML: impossible number of GPUs: " + std::to_string(count));
        return report;
    }

    for (const auto& gpu : readGpus(library, count, report.notes))
    {
        report.names.push_back(gpu.name.empty() ? "NVIDIA GPU" : gpu.name);
        report.uuids.push_back(gpu.uuid);
    }

    return report;
}

} // namespace quelta::execslave
