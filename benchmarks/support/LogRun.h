// Measures a log: several threads each write their share of the lines; the time includes closing
// the file.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace quelta::bench {

/** The contents of each line, the same for all logs. */
constexpr const char* sampleIp = "192.168.100.17";
constexpr unsigned samplePort = 21000;

/** Calls `logLines(count)` on every thread, then `finish`, which closes the file, and prints the
    number of lines per second. Returns the program's exit status. */
template <typename LogLines, typename Finish>
int measureLog(int threads, int lines, LogLines logLines, Finish finish)
{
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::thread> running;

    for (int i = 0; i < threads; ++i)
        running.emplace_back(logLines, lines / threads);

    for (auto& thread : running)
        thread.join();

    finish();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    const int written = lines / threads * threads;
    std::printf("{\"lines_per_second\": %.0f}\n", written / seconds.count());
    return 0;
}

} // namespace quelta::bench
