// The commands of the generator of masters. A command is a line of text, its answer a line of JSON.
//
//   announce             send beacons until all masters are connected; reports when the last was
//   accept               the same without beacons
//   scan MASTERS MS      this many masters send scan requests, each the next one after its answer
//   beacons COUNT RATE   send beacons of the first master, RATE per second; 0: no pauses
//   start                the first master starts the slave; waits until every master has its status
//   stop [PID]           the first master stops the slave; waits until every master has its status
//                        and the process PID has ended
//   kill PID             kill the slave's process; waits until the first master has been notified
//
// Times are nanoseconds of the monotonic clock. The answer to a failed command is {"error": "..."},
// after which the generator exits.
#pragma once

#include <string>

#include "masters/MasterSwarm.h"

namespace quelta::bench {

class Commands
{
public:
    /** `daemonPort` is where the beacons are sent to. */
    Commands(MasterSwarm& swarmToCommand, uint16_t daemonPort);
    ~Commands();

    /** Executes a command and returns its answer. */
    std::string run(const std::string& command);

private:
    enum class Beacons
    {
        send,
        none
    };

    std::string connectAll(Beacons beacons);
    std::string scan(int numAsking, int milliseconds);
    std::string sendBeacons(int count, int64_t rate);
    std::string start();
    std::string stop(int slavePid);
    std::string kill(int slavePid);
    void announceNext();

    MasterSwarm& swarm;
    const uint16_t port;
    int socketHandle;
    int nextToAnnounce = 0;
};

} // namespace quelta::bench
