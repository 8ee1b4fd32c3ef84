// The system's name look-up and socket calls, which have the same names on both systems.
#pragma once

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quelta {

using SystemSocket = int;

} // namespace quelta
