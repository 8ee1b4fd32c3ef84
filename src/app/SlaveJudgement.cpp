#include "app/SlaveJudgement.h"

namespace quelta {

namespace {

SlaveHang judgeSilence(SlaveStatus status, uint32_t silence, const SlaveTimeLimits& limits)
{
    if (status == STATUS_STARTING && silence > limits.startup)
        return SlaveHang::duringStartup;

    if (status == STATUS_INITIALIZED && silence > limits.afterInitialisation)
        return SlaveHang::afterInitialisation;

    if (status == STATUS_RUNNING && silence > limits.heartBeat)
        return SlaveHang::heartBeatStopped;

    return SlaveHang::none;
}

SlaveNextStep chooseNextStep(const SlaveObservation& seen, SlaveHang hang)
{
    if (seen.running)
        return seen.askedToStop || hang != SlaveHang::none ? SlaveNextStep::stop
                                                           : SlaveNextStep::keepWatching;

    const bool reported = seen.infoRequest && seen.status >= STATUS_INITIALIZED;
    return reported ? SlaveNextStep::ended : SlaveNextStep::crashed;
}

} // namespace

SlaveVerdict judgeSlave(const SlaveObservation& seen, const SlaveTimeLimits& limits)
{
    const auto hang = judgeSilence(seen.status, seen.millisecondsSinceLastMessage, limits);
    const bool initialised = seen.status == STATUS_INITIALIZED && hang == SlaveHang::none;
    return {hang, initialised, chooseNextStep(seen, hang)};
}

} // namespace quelta
