// Replaces an imported function of Windows in this program by another with the same signature.
//
// `functionSlot` is the program's pointer to the imported function, __imp_NAME. No other thread may
// call the function while the patch is constructed or destroyed.
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

    /** The function that the slot held before. */
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
