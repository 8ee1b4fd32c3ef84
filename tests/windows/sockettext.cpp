// Prints the daemon's text for each socket error whose number is an argument.
#include <cstdio>
#include <cstdlib>

#include <winsock2.h>

#include "platform/Sockets.h"

int main(int count, char** arguments)
{
    for (int i = 1; i < count; ++i)
    {
        WSASetLastError(std::atoi(arguments[i]));
        std::printf("%s\n", quelta::platform::socketErrorText().c_str());
    }

    return 0;
}
