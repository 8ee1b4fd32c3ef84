// Bytes of unknown encoding as UTF-8 that the framework's strings can take: they walk a text by what its
// bytes promise, and a promise that is not kept leads them behind its end.
#pragma once

#include <string>
#include <string_view>

namespace quelta {

/** `bytes` as they are if they are valid UTF-8 without NULs; otherwise with every byte taken for a Latin-1
    character, which is what they mostly are then, and cut at the first NUL. */
std::string toValidUtf8(std::string_view bytes);

} // namespace quelta
