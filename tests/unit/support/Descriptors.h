// The descriptors that this process has open, where the system shows them as files, and the faults
// that tests make with them.
#pragma once

#include <cstdint>
#include <vector>

namespace quelta::test {

/** Whether the functions below work on this system. */
bool descriptorsCanBeCounted();

int countDescriptors();

/** While it lives, this process cannot open anything more. Affects all threads. */
class NoMoreDescriptors
{
public:
    NoMoreDescriptors();
    ~NoMoreDescriptors();

    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    std::vector<int> taken;
    uint64_t limitBefore = 0;
};

/** Puts something that is no socket in the place of this process's UDP socket on `port`, so that
    receiving fails. False if there is no such socket. */
bool breakUdpSocket(uint16_t port);

} // namespace quelta::test
