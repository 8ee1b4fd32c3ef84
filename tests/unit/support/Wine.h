// Tells Windows from Wine, which lacks some of what is tested.
#pragma once

namespace quelta::test {

bool runsUnderWine();

} // namespace quelta::test
