#include "exec_slave/platform/SystemError.h"

#include <cerrno>
#include <cstring>

namespace quelta::execslave {

int getLastSystemError()
{
    return errno;
}

std::string describeSystemError(int number)
{
    const auto* const text = strerrordesc_np(number);
    return text != nullptr ? text : "error " + std::to_string(number);
}

} // namespace quelta::execslave
