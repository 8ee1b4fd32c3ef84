// The daemon's entry point; everything else is in the library.
#include "app/SlaveDaemonApp.h"
#include "platform/Process.h"
#include "platform/ProgramEntry.h"

namespace {

juce::JUCEApplicationBase* createApplication()
{
    return new quelta::SlaveDaemonApp;
}

} // namespace

int main(int argc, char** argv)
{
    quelta::platform::prepareProcess();
    juce::JUCEApplicationBase::createInstance = createApplication;
    return quelta::platform::runApplication(argc, argv);
}
