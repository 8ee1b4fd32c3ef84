// What a client of the farm view may use up.
#pragma once

#include <chrono>
#include <cstddef>

namespace quelta::farmview {

struct HttpLimits
{
    size_t connections = 128;
    std::chrono::milliseconds request{30000};  ///< To wait for a request, from its connection on.
    std::chrono::milliseconds response{30000}; ///< For the client to read a response.
    std::chrono::milliseconds events{10000};   ///< For a viewer to read the events sent at once.
    size_t unreadBytes = 1024 * 1024;          ///< Of events that a viewer has not read.
};

} // namespace quelta::farmview
