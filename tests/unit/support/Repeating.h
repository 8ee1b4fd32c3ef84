// Does the same again and again, on a thread of its own, until it goes.
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
              while (!enough)
                  action();
          })
    {}

    ~Repeating()
    {
        enough = true;
        thread.join();
    }

    Repeating(const Repeating&) = delete;
    Repeating& operator=(const Repeating&) = delete;

private:
    std::atomic<bool> enough{false};
    std::thread thread;
};

} // namespace quelta::test
