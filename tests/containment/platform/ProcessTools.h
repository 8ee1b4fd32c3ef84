// What the test programs of the containment do with processes.
#pragma once

#include <string>
#include <vector>

namespace quelta::test {

/** Ignores SIGTERM, SIGINT and SIGHUP, or console events. */
void ignoreEndRequests();

/** Blocks and ignores some signals and opens descriptors that children inherit. Linux. */
void makeSignalsAndDescriptorsUnusual();

/** Starts a process that leaves this one's session or process group and, on Linux, has no parent of
    its own: its parent has ended. */
void startOrphan(const std::vector<std::string>& command);

/** Locks a file, which it creates, until this process ends. */
bool lockFile(const std::string& path);

/** Whether another process has locked the file. */
bool isLocked(const std::string& path);

/** What this process has open and what it has started, as text, to be compared. */
std::string describeResources();

} // namespace quelta::test
