#include "farm_view/platform/ReadProcess.h"

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace quelta::farmview {

namespace {

/** The fields of /proc/self/stat from the third on: the second may contain blanks. */
std::istringstream openStat()
{
    std::ifstream file("/proc/self/stat");
    std::string line;
    std::getline(file, line);
    const auto end = line.rfind(')');
    return std::istringstream(end == std::string::npos ? "" : line.substr(end + 1));
}

double readBootTime()
{
    std::ifstream file("/proc/stat");
    std::string word;

    while (file >> word)
        if (double seconds = 0; word == "btime" && file >> seconds)
            return seconds;

    return 0;
}

uint64_t countOpenFiles()
{
    std::error_code error;
    const std::filesystem::directory_iterator entries("/proc/self/fd", error);

    // One of them belongs to this iteration.
    return error ? 0 : static_cast<uint64_t>(std::distance(begin(entries), end(entries))) - 1;
}

std::optional<uint64_t> readMaxFiles()
{
    rlimit limit{};

    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return std::nullopt;

    return limit.rlim_cur;
}

} // namespace

ProcessFigures readProcessFigures()
{
    const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    auto stat = openStat();
    std::string ignored;

    // The 14th, 15th, 22nd, 23rd and 24th field of proc(5).
    for (int field = 3; field < 14; ++field)
        stat >> ignored;

    double user = 0;
    double system = 0;
    stat >> user >> system;

    for (int field = 16; field < 22; ++field)
        stat >> ignored;

    double startTicks = 0;
    uint64_t pages = 0;
    ProcessFigures figures;
    stat >> startTicks >> figures.virtualBytes >> pages;

    figures.cpuSeconds = (user + system) / ticks;
    figures.startSeconds = readBootTime() + startTicks / ticks;
    figures.residentBytes = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    figures.openFiles = countOpenFiles();
    figures.maxFiles = readMaxFiles();
    return figures;
}

} // namespace quelta::farmview
