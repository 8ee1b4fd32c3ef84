#include "Wine.h"

namespace quelta::test {

bool runsUnderWine()
{
    return false;
}

} // namespace quelta::test
