#include "platform/MessageWindow.h"

namespace quelta::platform {

bool guardMessageWindow(std::function<void()>)
{
    return true;
}

void releaseMessageWindow() {}

} // namespace quelta::platform
