// Decides from repeated observations of a connection's socket whether its reader thread is dead. No
// side effects: the caller passes each observation and its time.
//
// A reader is considered dead once the same input has been waiting for `limitMs` while the reader
// was not handling a message. A healthy reader takes input within milliseconds, so the limit only
// has to cover a busy machine.
#pragma once

#include <cstdint>
#include <optional>

namespace quelta {

struct ReaderObservation
{
    bool inputPending = false; ///< Data, the end of the stream or an error is waiting.
    uint64_t bytesTaken = 0;   ///< Bytes read so far; 0 where the system does not count them.
    uint64_t deliveries = 0;   ///< Messages that the reader has begun to handle.
    bool delivering = false;   ///< The reader is handling a message.
};

class ReaderWatch
{
public:
    /** Less than two ticks, so that the third observation of the same input decides. */
    static constexpr uint32_t limitMs = 900;

    /** Adds one observation, made at `now` (ms). Returns true if the reader is dead. */
    bool isDead(const ReaderObservation& seen, uint32_t now)
    {
        if (!seen.inputPending || seen.delivering)
        {
            waiting.reset();
            return false;
        }

        if (!waiting || waiting->bytesTaken != seen.bytesTaken ||
            waiting->deliveries != seen.deliveries)
            waiting = Waiting{now, seen.bytesTaken, seen.deliveries};

        return now - waiting->since >= limitMs;
    }

    /** Forgets all observations, for a new connection. */
    void reset() { waiting.reset(); }

private:
    /** Input that the reader has not taken yet. */
    struct Waiting
    {
        uint32_t since = 0;
        uint64_t bytesTaken = 0;
        uint64_t deliveries = 0;
    };

    std::optional<Waiting> waiting;
};

} // namespace quelta
