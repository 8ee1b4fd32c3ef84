// Bytes from a master, by UDP or TCP: whatever passes the check comes out as it went in.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "messages/MasterDaemonMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    quelta::MasterDaemonMessage message;

    if (quelta::parseMasterMessage(data, size, message))
    {
        constexpr size_t meaningful = 18; // up to the padding behind the port
        const auto bytes = quelta::encodeMasterMessage(message);

        if (std::memcmp(bytes.data(), data, meaningful) != 0)
            std::abort();
    }
    return 0;
}
