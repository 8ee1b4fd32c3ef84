// Receives debugger output (OutputDebugString) of all programs. Prints "listening", then a line for
// each text: the sender's process id and the bytes in hexadecimal. Exits after a minute without
// any.
#include <windows.h>

#include <cstdio>

namespace {

constexpr DWORD idleTimeoutMs = 60'000;

/** The layout that Windows defines. */
struct Buffer
{
    DWORD process;
    char text[4'096 - sizeof(DWORD)];
};

void print(const Buffer& buffer)
{
    std::printf("%lu ", buffer.process);

    for (const auto* byte = buffer.text; *byte != '\0'; ++byte)
        std::printf("%02x", static_cast<unsigned>(static_cast<unsigned char>(*byte)));

    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main()
{
    auto* const ready = CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_BUFFER_READY");
    auto* const filled = CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_DATA_READY");
    auto* const mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                             sizeof(Buffer), L"DBWIN_BUFFER");
    const auto* const buffer =
        static_cast<const Buffer*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, sizeof(Buffer)));

    if (ready == nullptr || filled == nullptr || buffer == nullptr)
        return 1;

    std::printf("listening\n");
    std::fflush(stdout);

    while (SetEvent(ready) != FALSE && WaitForSingleObject(filled, idleTimeoutMs) == WAIT_OBJECT_0)
        print(*buffer);

    return 0;
}
