// The system's name look-up and socket calls, which have the same names on both systems.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif

#include <winsock2.h>
#include <ws2tcpip.h>

namespace quelta {

using SystemSocket = SOCKET;

} // namespace quelta
