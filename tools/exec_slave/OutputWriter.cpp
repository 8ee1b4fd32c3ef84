#include "exec_slave/OutputWriter.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "exec_slave/CleanText.h"
#include "exec_slave/RotatingFile.h"
#include "exec_slave/platform/StandardOutput.h"

namespace quelta::execslave {

namespace {

using namespace std::chrono_literals;

constexpr size_t queueLimit = 256 * 1024;   ///< Bytes; more block the program.
constexpr size_t messageLimit = 512 * 1024; ///< Bytes; more messages are lost.
constexpr auto messagePrefix = "exec slave: ";
constexpr auto endLimit = 1s;
constexpr auto cancelInterval = 20ms;

} // namespace

struct OutputWriter::Worker
{
    explicit Worker(const OutputSettings& settings) : prefix(settings.prefix)
    {
        if (!settings.file.empty())
            file.emplace(settings.file, settings.maxSize, settings.keep);

        thread = std::thread([this] { run(); });
    }

    void addProgramLine(std::string_view line)
    {
        const auto text = prefix + cleanText(line) + '\n';
        std::unique_lock guard(lock);
        hasRoom.wait(guard, [this] { return queue.size() < queueLimit || isEnding; });
        queue += text;
        guard.unlock();
        hasLines.notify_one();
    }

    void addMessage(std::string_view message)
    {
        {
            const std::lock_guard guard(lock);

            if (queue.size() >= messageLimit)
                return;

            ((queue += messagePrefix) += cleanText(message)) += '\n';
        }

        hasLines.notify_one();
    }

    /** Takes the queued lines. Waits for some, unless the writer is ending. */
    std::string take()
    {
        std::unique_lock guard(lock);
        hasLines.wait(guard, [this] { return !queue.empty() || isEnding; });
        auto lines = std::exchange(queue, {});
        guard.unlock();
        hasRoom.notify_all();
        return lines;
    }

    void run()
    {
        for (auto lines = take(); !lines.empty(); lines = take())
        {
            // The file comes first: it does not wait for a reader.
            if (const auto problem = file ? file->write(lines) : std::string(); !problem.empty())
                ((lines += messagePrefix) += problem) += '\n';

            output.write(lines);
        }

        const std::lock_guard guard(lock);
        hasEnded = true;
        ended.notify_one();
    }

    void end()
    {
        if (!thread.joinable())
            return;

        std::unique_lock guard(lock);
        isEnding = true;
        hasLines.notify_one();
        hasRoom.notify_all();

        if (!ended.wait_for(guard, endLimit, [this] { return hasEnded; }))
            do
                output.cancel();
            while (!ended.wait_for(guard, cancelInterval, [this] { return hasEnded; }));

        guard.unlock();
        thread.join();
    }

    const std::string prefix;
    std::optional<RotatingFile> file; ///< Only the thread uses it.
    StandardOutput output;

    std::mutex lock; ///< Guards what follows.
    std::condition_variable hasLines;
    std::condition_variable hasRoom;
    std::condition_variable ended;
    std::string queue; ///< Whole lines.
    bool isEnding = false;
    bool hasEnded = false;

    std::thread thread;
};

OutputWriter::OutputWriter(const OutputSettings& settings)
    : worker(std::make_unique<Worker>(settings))
{}

OutputWriter::~OutputWriter()
{
    end();
}

void OutputWriter::writeProgramLine(std::string_view line)
{
    worker->addProgramLine(line);
}

void OutputWriter::writeMessage(std::string_view text)
{
    worker->addMessage(text);
}

void OutputWriter::end()
{
    worker->end();
}

} // namespace quelta::execslave
