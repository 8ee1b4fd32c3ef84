#include "platform/Console.h"

#include <windows.h>

#include <atomic>

namespace quelta::platform {

namespace {

HANDLE getHandle(StandardStream stream)
{
    return GetStdHandle(stream == StandardStream::error ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
}

class WindowsConsole final : public Console
{
public:
    bool isRealConsole(StandardStream stream) override
    {
        CONSOLE_SCREEN_BUFFER_INFO info;
        return GetConsoleScreenBufferInfo(getHandle(stream), &info) != FALSE;
    }

    void write(StandardStream stream, std::u16string_view text) override
    {
        DWORD written = 0;
        WriteConsoleW(getHandle(stream), text.data(), static_cast<DWORD>(text.size()), &written,
                      nullptr);
    }
};

Console* activeConsole = nullptr;

/** The console's input mode, with the flag that makes Windows apply the selection bit; 0 if there
    is nothing to restore. */
std::atomic<DWORD> modeToRestore{0};

/** Windows calls the handler that was registered last first. This one is registered first, so it
    sees only events that no other handler has handled, and that end the process. */
BOOL WINAPI restoreBeforeForcedEnd(DWORD)
{
    restoreConsoleSelection();
    return FALSE;
}

} // namespace

Console& getConsole()
{
    static WindowsConsole systemConsole;
    return activeConsole != nullptr ? *activeConsole : systemConsole;
}

void setConsole(Console* replacement)
{
    activeConsole = replacement;
}

void disableConsoleSelection()
{
    auto* const input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;

    if (GetConsoleMode(input, &mode) == FALSE)
        return;

    modeToRestore = mode | ENABLE_EXTENDED_FLAGS;
    SetConsoleCtrlHandler(restoreBeforeForcedEnd, TRUE);
    SetConsoleMode(input, (mode | ENABLE_EXTENDED_FLAGS) & ~DWORD{ENABLE_QUICK_EDIT_MODE});
}

void restoreConsoleSelection()
{
    if (const auto mode = modeToRestore.exchange(0); mode != 0)
        SetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), mode);
}

std::u16string toTerminatedUtf16(const char* utf8)
{
    const auto count = MultiByteToWideChar(CP_UTF8, 0, utf8, -1, nullptr, 0);
    std::u16string result(static_cast<size_t>(count), u'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8, -1, reinterpret_cast<wchar_t*>(result.data()), count);
    return result;
}

} // namespace quelta::platform
