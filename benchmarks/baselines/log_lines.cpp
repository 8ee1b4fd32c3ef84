// Measures how many lines per second the daemon's log writes to its file. Usage: FOLDER THREADS
// LINES.
#include "log/Log.h"
#include "support/LogRun.h"

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;

    using namespace quelta;
    flags::logToStdout = 0;
    flags::logToFile = 1;
    flags::logTime = 1;
    flags::logPrefix = 1;
    flags::daemon = 1;
    initLog(argv[1]);

    const auto logLines = [](int count) {
        for (int i = 0; i < count; ++i)
            QUELTA_LOG_DAEMON("detected new master on address %s:%u", bench::sampleIp,
                              bench::samplePort);
    };

    return bench::measureLog(std::atoi(argv[2]), std::atoi(argv[3]), logLines, shutdownLog);
}
