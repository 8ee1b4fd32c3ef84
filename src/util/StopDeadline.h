// The deadline for slaves to end when Windows is about to end this process. A slave that ignores
// its stop message must not use up the time needed to finish the log.
#pragma once

#include <cstdint>
#include <optional>

namespace quelta {

/** The slaves' share of the 5 s after which Windows ends a process whose console is closed or whose
    session ends. */
constexpr int64_t hurriedGraceMs = 3'500;

/** Sets the deadline, in milliseconds of the awake clock (see platform/AwakeClock.h). Without a
    value there is no deadline, which is the initial state. Any thread. */
void setStopDeadline(std::optional<int64_t> awakeMilliseconds);

/** Whether slaves that still run must be killed now. Any thread. */
bool hasStopDeadlinePassed();

} // namespace quelta
