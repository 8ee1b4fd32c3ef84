// Tells how it was started, and ends: the exact text of its command line, which the runtime would
// split, and how many handles it has from the start, which shows whether any came from the process
// that started it. Also whether text can be selected in its console.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

constexpr uintptr_t handleStep = 4; ///< Handles are multiples of this.
constexpr uintptr_t highestHandle = 16'384;

std::string toUtf8(const wchar_t* text)
{
    const auto size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back(); // the zero
    return utf8;
}

int countHandles()
{
    int count = 0;
    DWORD flags = 0;

    for (auto value = handleStep; value <= highestHandle; value += handleStep)
        if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE)
            ++count;

    return count;
}

const char* describeSelection()
{
    DWORD mode = 0;

    if (GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) == FALSE)
        return "no console";

    return (mode & ENABLE_QUICK_EDIT_MODE) != 0 ? "on" : "off";
}

} // namespace

int main()
{
    const auto handles = countHandles();
    std::printf("probe: command line: [%s]\n", toUtf8(GetCommandLineW()).c_str());
    std::printf("probe: handles: %d\n", handles);
    std::printf("probe: selection: %s\n", describeSelection());
    return 0;
}
