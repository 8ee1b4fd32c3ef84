// Bytes from the slave. A message that passes the check is encoded to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "messages/SlaveDaemonMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    quelta::SlaveDaemonMessage message;

    if (quelta::SlaveDaemonMessage::fromData(data, size, message) &&
        std::memcmp(message.encode().data(), data, size) != 0)
        std::abort();
    return 0;
}
