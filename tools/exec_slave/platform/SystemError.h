// The system's own texts for its errors.
#pragma once

#include <string>

namespace quelta::execslave {

/** The number of the last error of this thread: errno or GetLastError. */
int getLastSystemError();

/** Its text in UTF-8, such as "No such file or directory". */
std::string describeSystemError(int number);

} // namespace quelta::execslave
