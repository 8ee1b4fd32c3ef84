#include "platform/DebugOutput.h"

#include <syslog.h>

namespace quelta::platform {

void writeDebugLine(const char* line)
{
    syslog(LOG_USER | LOG_INFO, "%s", line);
}

} // namespace quelta::platform
