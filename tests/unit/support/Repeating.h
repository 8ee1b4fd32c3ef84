// Repeats an action on its own thread until it is destroyed.
#pragma once

#include <atomic>
#include <thread>

namespace quelta::test {

class Repeating
{
public:
    template <typename Action>
    explicit Repeating(Action action)
        : thread([this, action] {
              while (!stopping)
                  action();
          })
    {}

    ~Repeating()
    {
        stopping = true;
        thread.join();
    }

    Repeating(const Repeating&) = delete;
    Repeating& operator=(const Repeating&) = delete;

private:
    std::atomic<bool> stopping{false};
    std::thread thread;
};

} // namespace quelta::test
