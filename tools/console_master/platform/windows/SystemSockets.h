// The system's name look-up and socket calls, which have the same names on both systems.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

namespace quelta {

using SystemSocket = SOCKET;

} // namespace quelta
