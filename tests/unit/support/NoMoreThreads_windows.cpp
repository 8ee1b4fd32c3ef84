#include "NoMoreThreads.h"

namespace quelta::test {

NoMoreThreads::NoMoreThreads() = default;

NoMoreThreads::~NoMoreThreads() = default;

bool NoMoreThreads::arePossible()
{
    return false;
}

void NoMoreThreads::waitForTheEnd() {}

} // namespace quelta::test
