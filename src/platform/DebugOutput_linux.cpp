#include <syslog.h>

#include "platform/DebugOutput.h"

namespace quelta::platform {

void writeDebugLine(const char* line)
{
    syslog(LOG_USER | LOG_INFO, "%s", line);
}

} // namespace quelta::platform
