// Prints how it was started, and exits: its unsplit command line, the number of handles that it has
// from the start, which shows whether it inherited any, and whether text can be selected in its
// console.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

constexpr uintptr_t handleStep = 4; ///< Handles are multiples of this.
constexpr uintptr_t maxHandle = 16'384;

std::string toUtf8(const wchar_t* text)
{
    const auto size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back(); // the terminating NUL
    return utf8;
}

int countHandles()
{
    int count = 0;
    DWORD flags = 0;

    for (auto value = handleStep; value <= maxHandle; value += handleStep)
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
