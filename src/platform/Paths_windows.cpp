#include "platform/Paths.h"

namespace quelta::platform {

bool absolutePathsHaveRoot()
{
    return true;
}

char nativeSeparator()
{
    return '\\';
}

} // namespace quelta::platform
