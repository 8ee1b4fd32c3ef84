// A library with the functions of NVIDIA's NVML that are used, for the tests. CMake builds it once
// for each behaviour.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

enum class Behaviour
{
    two,      ///< Two GPUs, not in the order of the PCI bus.
    none,     ///< The driver runs, but there is no GPU.
    error,    ///< The driver is not loaded.
    lost,     ///< The second of three GPUs has fallen off the bus.
    nonsense, ///< Prints a text, and has an impossible number of GPUs.
    dirty,    ///< Names that are not terminated, with control characters and no UTF-8.
    hang,     ///< Never returns.
    crash,    ///< Ends the process.
    hangs_at_exit
};

constexpr auto behaviour = Behaviour::FAKE_NVML_BEHAVIOUR;

constexpr int success = 0;
constexpr int driverNotLoaded = 9;
constexpr int gpuIsLost = 15;

/** A device handle points to one of these numbers. */
std::array<unsigned, 3> devices{0, 1, 2};

unsigned getIndex(const void* device)
{
    return *static_cast<const unsigned*>(device);
}

[[noreturn]] void hang()
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::seconds(1));
}

int copyText(const char* form, const void* device, char* text, unsigned size)
{
    if (behaviour == Behaviour::dirty)
        std::memset(text, '\x01', size);
    else
        std::snprintf(text, size, form, getIndex(device));

    return success;
}

} // namespace

extern "C" int nvmlInit_v2()
{
    if (behaviour == Behaviour::hang)
        hang();

    if (behaviour == Behaviour::crash)
        std::_Exit(134); // as after SIGABRT, but without a core file or a dialog box

    if (behaviour == Behaviour::hangs_at_exit)
        std::atexit([] { hang(); });

    if (behaviour == Behaviour::nonsense)
    {
        std::printf("libnvidia: \xff\x01 42");
        std::fflush(stdout);
    }

    return behaviour == Behaviour::error ? driverNotLoaded : success;
}

extern "C" int nvmlDeviceGetCount_v2(unsigned* count)
{
    switch (behaviour)
    {
        case Behaviour::none:
            *count = 0;
            break;
        case Behaviour::lost:
            *count = 3;
            break;
        case Behaviour::nonsense:
            *count = 4'000'000'000;
            break;
        default:
            *count = 2;
    }

    return success;
}

extern "C" int nvmlDeviceGetHandleByIndex_v2(unsigned index, void** device)
{
    if (behaviour == Behaviour::lost && index == 1)
        return gpuIsLost;

    *device = &devices.at(index);
    return success;
}

extern "C" int nvmlDeviceGetName(void* device, char* text, unsigned size)
{
    return copyText("Fake GPU %u", device, text, size);
}

extern "C" int nvmlDeviceGetUUID(void* device, char* text, unsigned size)
{
    return copyText("GPU-%u0000000-0000-0000-0000-000000000000", device, text, size);
}

extern "C" int nvmlDeviceGetPciInfo_v3(void* device, void* info)
{
    constexpr size_t busOffset = 20;
    const unsigned bus = 0x10 - getIndex(device);
    std::memset(info, 0, 68);
    std::memcpy(static_cast<char*>(info) + busOffset, &bus, sizeof bus);
    return success;
}

extern "C" const char* nvmlErrorString(int result)
{
    return result == driverNotLoaded ? "Driver Not Loaded" : "GPU is lost";
}
