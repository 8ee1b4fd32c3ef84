// The moment by which slaves have to be gone, where the system ends this process a few seconds
// after telling it so: a slave that ignores its stop must not use up the time that the log needs.
#pragma once

#include <cstdint>
#include <optional>

namespace quelta {

/** What slaves are left of the 5 s after which Windows ends a process whose console was closed or
    whose session ends. */
constexpr int64_t hurriedGraceMs = 3'500;

/** In milliseconds of the clock that stands still while the machine sleeps; without a value there
    is no such moment, which is the initial state. Any thread. */
void setStopDeadline(std::optional<int64_t> awakeMilliseconds);

/** Whether a slave that still runs has to be ended by force now. Any thread. */
bool hasStopDeadlinePassed();

} // namespace quelta
