// Prints how many handles of each kind the parent of a process has, one kind a line under its
// Windows name ("Process", "Thread", "Event"), and how many threads ("running threads"). Its
// argument is the id of the process. Exits with 0 if the parent could be inspected.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "ParentProcess.h"

#include <winternl.h>

namespace {

constexpr uintptr_t handleStep = 4; ///< Handles are multiples of this.
constexpr uintptr_t maxHandle = 65'536;

std::string kindOf(HANDLE handle)
{
    alignas(PUBLIC_OBJECT_TYPE_INFORMATION) char answer[1'024];

    if (!NT_SUCCESS(NtQueryObject(handle, ObjectTypeInformation, answer, sizeof(answer), nullptr)))
        return "unknown";

    const auto& name = reinterpret_cast<const PUBLIC_OBJECT_TYPE_INFORMATION*>(answer)->TypeName;
    std::string kind;

    for (size_t i = 0; i < name.Length / sizeof(wchar_t); ++i)
        kind += static_cast<char>(name.Buffer[i]);

    return kind;
}

/** Tries every possible handle, because not every system can list them. */
std::map<std::string, int> countHandles(HANDLE process)
{
    std::map<std::string, int> kinds;

    for (auto value = handleStep; value <= maxHandle; value += handleStep)
    {
        HANDLE copy = nullptr;

        if (DuplicateHandle(process, reinterpret_cast<HANDLE>(value), GetCurrentProcess(), &copy, 0,
                            FALSE, DUPLICATE_SAME_ACCESS) == FALSE)
            continue;

        ++kinds[kindOf(copy)];
        CloseHandle(copy);
    }

    return kinds;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2)
        return 2;

    const auto parent = describeParent(static_cast<DWORD>(std::atoi(arguments[1])));
    auto* const handle = OpenProcess(PROCESS_DUP_HANDLE, FALSE, parent.th32ProcessID);

    if (handle == nullptr)
        return 1;

    for (const auto& [kind, number] : countHandles(handle))
        std::printf("%s: %d\n", kind.c_str(), number);

    std::printf("running threads: %lu\n", parent.cntThreads);
    return 0;
}
