// Prepares sockets that listen.
#pragma once

#include <boost/asio/ip/tcp.hpp>

namespace quelta::farmview {

/** Lets no other program share the address, but lets this one be restarted at once. Call it after
    opening the acceptor, before binding it. */
void makeAddressExclusive(boost::asio::ip::tcp::acceptor& acceptor);

} // namespace quelta::farmview
