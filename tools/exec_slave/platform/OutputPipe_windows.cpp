#include "exec_slave/platform/OutputPipe.h"

#include <algorithm>
#include <atomic>
#include <string>

namespace quelta::execslave {

OutputPipe::OutputPipe()
{
    static std::atomic<unsigned> count{0};
    const auto name = L"\\\\.\\pipe\\quelta-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                      std::to_wstring(++count);
    readEnd = CreateNamedPipeW(
        name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
        PIPE_TYPE_BYTE | PIPE_REJECT_REMOTE_CLIENTS, 1, 0, 65536, 0, nullptr);

    if (readEnd == INVALID_HANDLE_VALUE)
        return;

    SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
    writeEnd = CreateFileW(name.c_str(), GENERIC_WRITE, 0, &inheritable, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    operation.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

OutputPipe::~OutputPipe()
{
    closeWriteEnd();

    if (isReading)
    {
        DWORD count = 0;
        CancelIoEx(readEnd, &operation);
        GetOverlappedResult(readEnd, &operation, &count, TRUE);
    }

    if (readEnd != INVALID_HANDLE_VALUE)
        CloseHandle(readEnd);

    if (operation.hEvent != nullptr)
        CloseHandle(operation.hEvent);
}

void OutputPipe::closeWriteEnd()
{
    if (isOpen())
        CloseHandle(writeEnd);

    writeEnd = INVALID_HANDLE_VALUE;
}

/** Returns false at the end of the output. */
bool OutputPipe::beginRead()
{
    if (isReading)
        return true;

    isReading = ReadFile(readEnd, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr,
                         &operation) != FALSE ||
                GetLastError() == ERROR_IO_PENDING;
    return isReading;
}

int OutputPipe::read(char* buffer, size_t size, std::chrono::milliseconds limit)
{
    if (numFetched == numBytes)
    {
        DWORD count = 0;

        if (!beginRead())
            return -1;

        if (WaitForSingleObject(operation.hEvent, static_cast<DWORD>(limit.count())) !=
            WAIT_OBJECT_0)
            return 0;

        isReading = false;

        if (GetOverlappedResult(readEnd, &operation, &count, FALSE) == FALSE)
            return -1;

        numBytes = count;
        numFetched = 0;
    }

    const auto fetched = std::min(size, numBytes - numFetched);
    std::copy_n(bytes.data() + numFetched, fetched, buffer);
    numFetched += fetched;
    return static_cast<int>(fetched);
}

} // namespace quelta::execslave
