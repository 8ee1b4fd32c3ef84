// Passes the command line to JUCE.
#pragma once

namespace quelta::platform {

/** Runs the JUCE application until it ends. Its factory, createInstance, must be set. Returns the
    exit status. */
int runApplication(int argc, char** argv);

} // namespace quelta::platform
