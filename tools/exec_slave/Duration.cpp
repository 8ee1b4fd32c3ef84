#include "exec_slave/Duration.h"

#include "platform/AwakeClock.h"

namespace quelta::execslave {

std::chrono::milliseconds getAwakeTime()
{
    return std::chrono::milliseconds(platform::getAwakeMilliseconds());
}

std::string describeSeconds(std::chrono::milliseconds duration)
{
    const auto milliseconds = duration.count();
    auto text = std::to_string(milliseconds / 1000);

    if (milliseconds % 1000 != 0)
    {
        const auto digits = std::to_string(1000 + milliseconds % 1000);
        text += '.';
        text.append(digits, 1);
        text.erase(text.find_last_not_of('0') + 1);
    }

    return text + " s";
}

} // namespace quelta::execslave
