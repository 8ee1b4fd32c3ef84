#include "exec_slave/platform/ContainedProgram.h"

namespace quelta::execslave {

const char* describe(Containment containment)
{
    switch (containment)
    {
        case Containment::job:
            return "job object";
        case Containment::cgroup:
            return "control group";
        case Containment::pidNamespace:
            return "PID namespace";
        case Containment::subreaper:
            break;
    }

    return "sub-reaper";
}

} // namespace quelta::execslave
