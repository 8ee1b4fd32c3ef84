#include "platform/Paths.h"

namespace quelta::platform {

bool absolutePathsHaveRoot()
{
    return false;
}

char nativeSeparator()
{
    return '/';
}

} // namespace quelta::platform
