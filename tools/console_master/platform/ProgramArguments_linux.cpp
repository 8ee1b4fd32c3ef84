#include "console_master/platform/ProgramArguments.h"

namespace quelta {

std::vector<std::string> programArguments(int argc, const char* const* argv)
{
    return {argv, argv + argc};
}

} // namespace quelta
