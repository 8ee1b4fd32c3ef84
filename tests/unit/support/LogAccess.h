// What unit tests may see and change of the log's private state: its lock, its sinks and its flush
// timer. Everything else they reach through the functions of Log.h, like the daemon.
#pragma once

#include <mutex>
#include <vector>

#include "log/Log.h"

namespace quelta::test {

class LogAccess
{
public:
    static std::recursive_mutex& getLock() { return Log::get().lock; }

    static void removeAllSinks()
    {
        auto& log = Log::get();
        const std::scoped_lock sl(log.lock);
        log.sinkCount = 0;
    }

    /** The sinks in the order in which they are called. */
    static std::vector<LogSink> getSinks()
    {
        auto& log = Log::get();
        const std::scoped_lock sl(log.lock);
        return {log.sinks.data(), log.sinks.data() + log.sinkCount};
    }

    static LogSink getFileSink() { return Log::writeToFile; }

    /** Null if there is no flush timer. */
    static Log::LogFlushTimer* getFlushTimer() { return Log::get().flushTimer.get(); }
};

} // namespace quelta::test
