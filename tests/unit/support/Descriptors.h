// The descriptors that this process has open, on systems with /proc, and faults that tests inject
// through them.
#pragma once

#include <cstdint>
#include <vector>

namespace quelta::test {

/** Whether the functions and the class below work on this system. */
bool descriptorsCanBeCounted();

int countDescriptors();

/** Uses up all descriptors of this process until it is destroyed. Affects all threads. */
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

/** Replaces this process's UDP socket on `port` with a file, so that receiving fails. False if
    there is no such socket. */
bool breakUdpSocket(uint16_t port);

} // namespace quelta::test
