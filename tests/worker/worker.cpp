// The program that quelta_exec_slave runs in the end-to-end tests. Its arguments are steps, which
// it performs in order:
//
//   print TEXT         writes a line
//   bytes HEX          writes these bytes, without a line end
//   flood NUMBER       writes that many bytes, without a line end
//   folder             writes the current folder
//   variable NAME      writes NAME=VALUE
//   wait MS            waits; a request to end takes effect now, see below
//   hang               waits for ever
//   await FILE         waits until the file exists
//   require FILE       exits with 1 unless the file exists
//   create FILE        creates an empty file
//   listen PORT        opens a port on 127.0.0.1
//   on-stop MS         from now on a request to end (SIGTERM, Ctrl-Break) is reported, and the
//                      program exits with 0 so many milliseconds later
//   ignore-stop        from now on such a request is ignored
//   exit STATUS        exits
//   crash              ends as a crashed program does
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <juce_core/juce_core.h>

#include "console_master/platform/ProgramArguments.h"
#include "standin_slave/platform/CurrentProcess.h"
#include "worker/platform/StopNumber.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds pollInterval{5};

std::atomic<bool> stopRequested{false};
milliseconds stopDelay{0};

void write(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

/** Ends the program if that has been requested. */
void poll()
{
    std::this_thread::sleep_for(pollInterval);

    if (!stopRequested)
        return;

    write("stop requested\n");
    std::this_thread::sleep_for(stopDelay);
    std::exit(0);
}

void waitFor(milliseconds time)
{
    for (const auto end = std::chrono::steady_clock::now() + time;
         std::chrono::steady_clock::now() < end;)
        poll();
}

bool exists(const std::string& file)
{
    return juce::File(juce::String::fromUTF8(file.c_str())).exists();
}

void awaitFile(const std::string& file)
{
    while (!exists(file))
        poll();
}

void requireFile(const std::string& file)
{
    if (exists(file))
        return;

    write("there is no " + file + "\n");
    std::exit(1);
}

void writeBytes(const std::string& hex)
{
    juce::MemoryBlock bytes;
    bytes.loadFromHexString(hex);
    write({static_cast<const char*>(bytes.getData()), bytes.getSize()});
}

void flood(uint64_t count)
{
    const std::string piece(65536, 'x');

    for (; count > 0; count -= std::min<uint64_t>(count, piece.size()))
        write(piece.substr(0, count));
}

void listenOn(int port)
{
    static juce::StreamingSocket listener;

    if (!listener.createListener(port, "127.0.0.1"))
        write("cannot listen\n");
}

void endLater(milliseconds delay)
{
    stopDelay = delay;
    std::signal(quelta::stopNumber(), [](int) { stopRequested = true; });
}

void writeVariable(const std::string& name)
{
    const auto* const value = std::getenv(name.c_str());
    write(name + "=" + (value != nullptr ? value : "(not set)") + "\n");
}

struct Step
{
    bool hasArgument = true;
    void (*perform)(const std::string& argument) = nullptr;
};

milliseconds toMilliseconds(const std::string& text)
{
    return milliseconds(std::stol(text));
}

const std::map<std::string, Step> steps{
    {"print", {true, [](const std::string& text) { write(text + "\n"); }}},
    {"bytes", {true, writeBytes}},
    {"flood", {true, [](const std::string& text) { flood(std::stoull(text)); }}},
    {"folder",
     {false,
      [](const std::string&) {
          write(juce::File::getCurrentWorkingDirectory().getFullPathName().toStdString() + "\n");
      }}},
    {"variable", {true, writeVariable}},
    {"wait", {true, [](const std::string& text) { waitFor(toMilliseconds(text)); }}},
    {"hang", {false, [](const std::string&) { waitFor(std::chrono::hours(1)); }}},
    {"await", {true, awaitFile}},
    {"require", {true, requireFile}},
    {"create",
     {true,
      [](const std::string& file) { juce::File(juce::String::fromUTF8(file.c_str())).create(); }}},
    {"listen", {true, [](const std::string& text) { listenOn(std::stoi(text)); }}},
    {"on-stop", {true, [](const std::string& text) { endLater(toMilliseconds(text)); }}},
    {"ignore-stop",
     {false, [](const std::string&) { std::signal(quelta::stopNumber(), SIG_IGN); }}},
    {"exit", {true, [](const std::string& text) { std::exit(std::stoi(text)); }}},
    {"crash", {false, [](const std::string&) { quelta::crashProcess(); }}},
};

} // namespace

int main(int argc, char** argv)
{
    const auto arguments = quelta::programArguments(argc, argv);

    for (size_t i = 1; i < arguments.size(); ++i)
    {
        const auto found = steps.find(arguments[i]);

        if (found == steps.end() || (found->second.hasArgument && i + 1 == arguments.size()))
        {
            write("wrong step: " + arguments[i] + "\n");
            return 99;
        }

        found->second.perform(found->second.hasArgument ? arguments[++i] : std::string());
    }

    return 0;
}
