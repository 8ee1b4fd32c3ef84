// Measures how many lines per second spdlog writes to a file, synchronously and with the text of
// the daemon's lines. Usage: FOLDER THREADS LINES.
#include <string>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "support/LogRun.h"

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;

    auto logger = spdlog::basic_logger_mt("daemon", std::string(argv[1]) + "/spdlog_log.txt", true);
    logger->set_pattern("[%H:%M:%S.%e] %-10n: %v", spdlog::pattern_time_type::utc);

    const auto logLines = [&logger](int count) {
        for (int i = 0; i < count; ++i)
            logger->info("detected new master on address {}:{}", quelta::bench::sampleIp,
                         quelta::bench::samplePort);
    };
    const auto finish = [&logger] {
        logger.reset();
        spdlog::shutdown();
    };

    return quelta::bench::measureLog(std::atoi(argv[2]), std::atoi(argv[3]), logLines, finish);
}
