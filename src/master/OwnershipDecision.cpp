#include "master/OwnershipDecision.h"

namespace quelta {

OwnershipDecision decideOwnership(const OwnershipState& state, const OwnershipRequest& request)
{
    using Stop = OwnershipDecision::Stop;
    using Type = MasterMessageType;
    const bool isOwner = request.address == state.owner;

    switch (request.type)
    {
        case Type::SCAN_REQUEST: {
            const bool tellFailure = request.fromOwnersConnection && state.slaveFailed;
            return {.reply = tellFailure ? Type::SLAVE_FAILED : Type::DAEMON_STATUS};
        }
        case Type::START_REQUEST:
            return {.start = !state.hasOwner(), .reply = Type::START_REPLY};
        case Type::STOP_REQUEST:
            return {.stop = isOwner ? Stop::andTellAll : Stop::no, .reply = Type::STOP_REPLY};
        case Type::STEAL_REQUEST:
            return {.stop = isOwner ? Stop::no : Stop::silently,
                    .start = !isOwner,
                    .reply = Type::STEAL_REPLY};
        default:
            return {.reply = Type::UNEXPECTED_REQUEST};
    }
}

} // namespace quelta
