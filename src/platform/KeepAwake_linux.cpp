#include "platform/KeepAwake.h"

namespace quelta::platform {

KeepAwake::KeepAwake() = default;
KeepAwake::~KeepAwake() = default;

} // namespace quelta::platform
