#include "platform/MessageWindow.h"

namespace quelta::platform {

bool guardMessageWindow(const std::function<void()>&)
{
    return true;
}

void releaseMessageWindow() {}

} // namespace quelta::platform
