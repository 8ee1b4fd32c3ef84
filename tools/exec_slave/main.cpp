// The entry point of quelta_exec_slave, which runs any program as the render slave.
#include "console_master/platform/ProgramArguments.h"
#include "exec_slave/ExecSlave.h"
#include "platform/Process.h"

int main(int argc, char** argv)
{
    quelta::platform::prepareProcess();
    return quelta::execslave::runExecSlave(quelta::programArguments(argc, argv));
}
