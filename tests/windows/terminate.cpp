// Ends a process's parent by force, as the task manager does it: TerminateProcess, without a word
// to the parent. Its argument is the id of the process; its exit status is 0 if the parent has
// ended.
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
