// What the generator of masters can be told to do, a line a command, a line of JSON the answer.
//
//   announce             beacons for every master until all are connected; the time of the last connection
//   accept               the same without beacons
//   scan MASTERS MS      so many masters ask again and again, each as soon as it has its answer
//   beacons COUNT RATE   beacons of the first master, evenly spread; a rate of 0 is as fast as it goes
//   start                the first master asks for the slave; waits until every master has heard of it
//   stop [PID]           it asks for the end of the slave; waits until every master has heard of it, and
//   until that
//                        process has ended
//   kill PID             ends the slave's process; waits until the first master has heard of it
//
// Times are nanoseconds of the monotonic clock. A failure is answered with {"error": "..."} and
// ends it.
#pragma once

#include <string>

#include "masters/MasterSwarm.h"

namespace quelta::bench {

class Commands
{
public:
    /** `daemonPort` is where the beacons go. */
    Commands(MasterSwarm& swarmToCommand, uint16_t daemonPort);
    ~Commands();

    /** The answer to a command. */
    std::string run(const std::string& command);

private:
    std::string announce(bool sendBeacons);
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
