// Bytes from a master, by UDP or TCP. A record that passes the check is encoded to the same bytes.
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
