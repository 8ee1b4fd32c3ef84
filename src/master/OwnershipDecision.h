// What a master's request does to the slave and its owner: a pure function.
//
//   state  request               slave                               reply
//   any    scan                  -                                   DAEMON_STATUS (*)
//   free   start                 started                             START_REPLY
//   owned  start                 -                                   START_REPLY
//   any    stop from the owner   stopped, status to all              STOP_REPLY
//   any    stop from another     -                                   STOP_REPLY
//   any    steal from another    stopped, started for the new owner  STEAL_REPLY
//   any    steal from the owner  -                                   STEAL_REPLY
//   any    any other type        -                                   UNEXPECTED_REQUEST
//
//   (*) SLAVE_FAILED on the owner's connection once the slave has failed.
//
// Stop and steal identify the owner by the address in the message, scan by the connection; masters
// rely on both. After a start and a steal, all masters are sent the new owner before the reply.
#pragma once

#include "messages/MasterDaemonMessage.h"

namespace quelta {

/** The part of the daemon's state that the decision depends on. */
struct OwnershipState
{
    MasterAddress owner;      ///< No owner while ip or port is 0.
    bool slaveFailed = false; ///< The slave's failure flag; false without a slave.

    bool hasOwner() const { return owner.ip != 0 && owner.port != 0; }
};

struct OwnershipRequest
{
    MasterMessageType type = MasterMessageType::SCAN_REQUEST;
    MasterAddress address; ///< As in the message.
    bool fromOwnersConnection = false;
};

struct OwnershipDecision
{
    enum class Stop
    {
        no,
        andTellAll,
        silently ///< The start that follows broadcasts the status.
    };

    Stop stop = Stop::no;
    bool start = false; ///< For the requester, after any stop.
    MasterMessageType reply = MasterMessageType::UNEXPECTED_REQUEST;

    bool operator==(const OwnershipDecision&) const = default;
};

OwnershipDecision decideOwnership(const OwnershipState& state, const OwnershipRequest& request);

} // namespace quelta
