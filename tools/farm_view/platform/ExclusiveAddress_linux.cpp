#include "farm_view/platform/ExclusiveAddress.h"

namespace quelta::farmview {

void makeAddressExclusive(boost::asio::ip::tcp::acceptor& acceptor)
{
    // Connections that wait for late segments would block the address for a minute.
    boost::system::error_code ignored;
    acceptor.set_option(boost::asio::socket_base::reuse_address(true), ignored);
}

} // namespace quelta::farmview
