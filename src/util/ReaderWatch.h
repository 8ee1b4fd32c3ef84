// Decides from repeated looks at a connection's socket whether its reader thread still reads. Pure:
// the caller passes what it saw and when.
//
// A reader is taken for dead once the same input has waited for it for `limitMs` while it was not
// busy with a message. A healthy reader takes input within milliseconds, so the limit only has to
// outlast a busy machine.
#pragma once

#include <cstdint>
#include <optional>

namespace quelta {

struct ReaderObservation
{
    bool inputPending = false; ///< Bytes, the end of the stream or an error wait to be read.
    uint64_t bytesTaken = 0;   ///< Bytes read so far; 0 where the system does not count them.
    uint64_t deliveries = 0;   ///< Messages that the reader has begun to deliver.
    bool delivering = false;   ///< The reader is busy with a message.
};

class ReaderWatch
{
public:
    /** Below two ticks of the daemon, so that the third look at the same input decides. */
    static constexpr uint32_t limitMs = 900;

    /** Adds one look, at `now` in milliseconds. Returns true if the reader is dead. */
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

    /** Forgets what it has seen: the connection is a new one. */
    void reset() { waiting.reset(); }

private:
    /** Input that nobody has taken yet. */
    struct Waiting
    {
        uint32_t since = 0;
        uint64_t bytesTaken = 0;
        uint64_t deliveries = 0;
    };

    std::optional<Waiting> waiting;
};

} // namespace quelta
