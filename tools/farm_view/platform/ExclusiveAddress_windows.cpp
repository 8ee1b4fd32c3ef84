#include "farm_view/platform/ExclusiveAddress.h"

namespace quelta::farmview {

void makeAddressExclusive(boost::asio::ip::tcp::acceptor& acceptor)
{
    // The option that Linux needs would let other programs take over the address here.
    using Exclusive = boost::asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>;
    boost::system::error_code ignored;
    acceptor.set_option(Exclusive(true), ignored);
}

} // namespace quelta::farmview
