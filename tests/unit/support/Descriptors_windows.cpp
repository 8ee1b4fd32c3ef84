#include "Descriptors.h"

namespace quelta::test {

bool descriptorsCanBeCounted()
{
    return false;
}

int countDescriptors()
{
    return 0;
}

NoMoreDescriptors::NoMoreDescriptors() = default;

NoMoreDescriptors::~NoMoreDescriptors() = default;

bool breakUdpSocket(uint16_t)
{
    return false;
}

} // namespace quelta::test
