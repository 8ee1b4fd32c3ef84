// Terminates the parent of a process, as the Task Manager does: TerminateProcess, without a request
// to exit. Its argument is the id of the process. Exits with 0 on success.
#include <cstdlib>

#include "ParentProcess.h"

namespace {

constexpr UINT forcedStatus = 9;

} // namespace

int main(int count, char** arguments)
{
    if (count != 2)
        return 2;

    const auto parent = describeParent(static_cast<DWORD>(std::atoi(arguments[1])));
    auto* const handle = OpenProcess(PROCESS_TERMINATE, FALSE, parent.th32ProcessID);
    return handle != nullptr && TerminateProcess(handle, forcedStatus) != FALSE ? 0 : 1;
}
