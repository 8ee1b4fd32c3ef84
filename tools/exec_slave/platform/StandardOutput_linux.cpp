#include "exec_slave/platform/StandardOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>

namespace quelta::execslave {

namespace {

constexpr int pollMs = 100; ///< How often a cancellation is noticed.

/** Opens a pipe or terminal once more, so that it can be made non-blocking. The flag of descriptor
    1 itself belongs to other processes too, such as the daemon. -1 if that is not possible. */
int openNonBlocking()
{
    struct stat found
    {};

    if (fstat(STDOUT_FILENO, &found) != 0 || !(S_ISFIFO(found.st_mode) || S_ISCHR(found.st_mode)))
        return -1;

    return open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

} // namespace

struct StandardOutput::Stream
{
    /** Writes what fits. Sockets have a flag for it. The last resort may block if another process
        fills the pipe after poll. */
    ssize_t writeSome(std::string_view text) const
    {
        if (descriptor >= 0)
            return ::write(descriptor, text.data(), text.size());

        const auto sent =
            send(STDOUT_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);

        if (sent >= 0 || errno != ENOTSOCK)
            return sent;

        pollfd event{STDOUT_FILENO, POLLOUT, 0};

        if (poll(&event, 1, 0) == 1)
            return ::write(STDOUT_FILENO, text.data(), std::min<size_t>(text.size(), PIPE_BUF));

        errno = EAGAIN;
        return -1;
    }

    const int descriptor = openNonBlocking();
    std::atomic<bool> cancelled{false};
};

StandardOutput::StandardOutput() : stream(std::make_unique<Stream>()) {}

StandardOutput::~StandardOutput()
{
    if (stream->descriptor >= 0)
        close(stream->descriptor);
}

void StandardOutput::write(std::string_view text)
{
    while (!text.empty() && !stream->cancelled)
    {
        const auto count = stream->writeSome(text);

        if (count >= 0)
        {
            text.remove_prefix(static_cast<size_t>(count));
            continue;
        }

        if (errno == EINTR)
            continue;

        if (errno != EAGAIN)
            return;

        pollfd event{stream->descriptor >= 0 ? stream->descriptor : STDOUT_FILENO, POLLOUT, 0};
        poll(&event, 1, pollMs);
    }
}

void StandardOutput::cancel()
{
    stream->cancelled = true;
}

} // namespace quelta::execslave
