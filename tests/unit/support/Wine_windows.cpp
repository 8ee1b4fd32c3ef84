#include "Wine.h"

#include <windows.h>

namespace quelta::test {

bool runsUnderWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

} // namespace quelta::test
