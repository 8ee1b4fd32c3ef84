#include "exec_slave/CheckLoop.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace quelta::execslave {

namespace {

using Clock = std::chrono::steady_clock;

/** Returns early if a stop is requested. */
void sleepUntil(Clock::time_point time, const std::stop_token& stop)
{
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_until(lock, stop, time, [] { return false; });
}

} // namespace

CheckLoop::CheckLoop(Rhythm rhythm, Check check, Report report)
    : thread([rhythm, check = std::move(check),
              report = std::move(report)](const std::stop_token& stop) {
          auto next = Clock::now() + rhythm.firstAfter;

          for (;;)
          {
              sleepUntil(next, stop);

              if (stop.stop_requested())
                  return;

              next = Clock::now() + rhythm.period;
              const auto failure = check(rhythm.limit, stop);

              if (stop.stop_requested())
                  return;

              report(failure);
          }
      })
{}

} // namespace quelta::execslave
