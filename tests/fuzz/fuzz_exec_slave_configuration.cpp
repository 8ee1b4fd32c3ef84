// A configuration file of the exec slave. Without errors it keeps the ranges, and its placeholders
// can be replaced. Errors have a place and are one line each.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "exec_slave/CheckText.h"
#include "exec_slave/ConfigurationReader.h"

namespace {

using namespace quelta::execslave;

bool isRight(const Configuration& configuration)
{
    const auto& ready = configuration.ready;
    const int conditions = (ready.line.empty() ? 0 : 1) + (ready.tcp.empty() ? 0 : 1) +
                           (ready.command.empty() ? 0 : 1);
    return !configuration.command.empty() && !configuration.command.front().empty() &&
           conditions <= 1 && ready.timeout.count() > 0 && configuration.alive.period.count() > 0 &&
           configuration.stop.grace.count() >= 0 && configuration.stop.grace.count() <= 11000 &&
           configuration.output.maxSize >= 1024 && configuration.output.keep >= 0 &&
           findExpansionError(configuration, {}).empty();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto result = parseConfiguration({reinterpret_cast<const char*>(data), size}, "f");

    for (const auto& error : result.errors)
        if (!error.starts_with("f:") || error.find('\n') != std::string::npos)
            std::abort();

    if (result.errors.empty() &&
        (!isRight(result.configuration) || describeRun(result.configuration, {}, {}).empty()))
        std::abort();
    return 0;
}
