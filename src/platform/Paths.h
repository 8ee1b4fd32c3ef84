// What differs between systems in how an absolute path is written.
#pragma once

namespace quelta::platform {

/** Whether an absolute path names its root (a drive or a server). Where it does not, "/" is the root of all.
 */
bool absolutePathsHaveRoot();

/** The separator of the system's own paths. */
char nativeSeparator();

} // namespace quelta::platform
