// Replaces a function of the system, for this program's calls of it, by another of the same
// signature.
//
// `slot` is the program's pointer to the imported function, named __imp_ and the function's name.
// Constructor and destructor run while no other thread calls the function.
#pragma once

#include <windows.h>

#include <utility>

namespace quelta::test {

template <typename Function>
class ImportPatch
{
public:
    ImportPatch(Function*& functionSlot, Function* replacement)
        : slot(functionSlot), original(exchange(replacement))
    {}

    ~ImportPatch() { exchange(original); }

    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    /** What the slot held before. */
    Function* getOriginal() const { return original; }

private:
    Function* exchange(Function* function)
    {
        DWORD protection = 0;
        VirtualProtect(&slot, sizeof(slot), PAGE_READWRITE, &protection);
        auto* const before = std::exchange(slot, function);
        VirtualProtect(&slot, sizeof(slot), protection, &protection);
        return before;
    }

    Function*& slot;
    Function* const original;
};

} // namespace quelta::test
