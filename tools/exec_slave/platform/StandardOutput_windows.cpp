#include "exec_slave/platform/StandardOutput.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>

#include <io.h>

#include "platform/Console.h"

namespace quelta::execslave {

using quelta::platform::StandardStream;

namespace {

constexpr size_t maxPiece = 64 * 1024; ///< Bytes.

} // namespace

struct StandardOutput::Stream
{
    std::atomic<bool> cancelled{false};
    std::atomic<HANDLE> writer{nullptr}; ///< The writing thread.
};

StandardOutput::StandardOutput() : stream(std::make_unique<Stream>()) {}

StandardOutput::~StandardOutput()
{
    if (stream->writer != nullptr)
        CloseHandle(stream->writer);
}

void StandardOutput::write(std::string_view text)
{
    if (stream->writer == nullptr)
    {
        HANDLE thread = nullptr;
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, 0,
                        FALSE, DUPLICATE_SAME_ACCESS);
        stream->writer = thread;
    }

    if (auto& console = quelta::platform::getConsole();
        console.isRealConsole(StandardStream::output))
    {
        const auto utf16 = quelta::platform::toTerminatedUtf16(std::string(text).c_str());
        console.write(StandardStream::output,
                      std::u16string_view(utf16).substr(0, utf16.size() - 1));
        return;
    }

    auto* const output = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stdout)));

    while (!text.empty() && !stream->cancelled)
    {
        DWORD count = 0;

        if (WriteFile(output, text.data(), static_cast<DWORD>(std::min(text.size(), maxPiece)),
                      &count, nullptr) == FALSE)
            return;

        text.remove_prefix(count);
    }
}

void StandardOutput::cancel()
{
    stream->cancelled = true;

    if (auto* const thread = stream->writer.load(); thread != nullptr)
        CancelSynchronousIo(thread);
}

} // namespace quelta::execslave
