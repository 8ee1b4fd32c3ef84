#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <juce_core/juce_core.h>

#include "Descriptors.h"

namespace quelta::test {

namespace {

constexpr int maxDescriptor = 65'536; // the limit of the process may be a billion
constexpr rlim_t loweredLimit = 256;  // few descriptors to use up

bool isUdpSocketOn(int descriptor, uint16_t port)
{
    int type = 0;
    socklen_t typeSize = sizeof(type);
    sockaddr_in address{};
    socklen_t addressSize = sizeof(address);
    return getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &typeSize) == 0 &&
           type == SOCK_DGRAM &&
           getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &addressSize) == 0 &&
           address.sin_family == AF_INET && ntohs(address.sin_port) == port;
}

} // namespace

bool descriptorsCanBeCounted()
{
    return juce::File("/proc/self/fd").isDirectory();
}

int countDescriptors()
{
    return juce::File("/proc/self/fd").getNumberOfChildFiles(juce::File::findFilesAndDirectories);
}

NoMoreDescriptors::NoMoreDescriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limitBefore = limit.rlim_cur;
    limit.rlim_cur = loweredLimit;
    setrlimit(RLIMIT_NOFILE, &limit);

    for (int descriptor = dup(STDIN_FILENO); descriptor >= 0; descriptor = dup(STDIN_FILENO))
        taken.push_back(descriptor);
}

NoMoreDescriptors::~NoMoreDescriptors()
{
    for (const auto descriptor : taken)
        close(descriptor);

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limitBefore;
    setrlimit(RLIMIT_NOFILE, &limit);
}

bool breakUdpSocket(uint16_t port)
{
    for (int descriptor = 0; descriptor < maxDescriptor; ++descriptor)
        if (isUdpSocketOn(descriptor, port))
        {
            const int other = open("/dev/null", O_RDONLY | O_CLOEXEC);
            const bool replaced = dup2(other, descriptor) == descriptor;
            close(other);
            return replaced;
        }

    return false;
}

} // namespace quelta::test
