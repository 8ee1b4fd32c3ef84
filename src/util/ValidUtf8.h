// Bytes of unknown encoding as UTF-8 that the framework's strings can take: they walk a text by
// what its bytes promise, and a promise that is not kept leads them behind its end.
#pragma once

#include <string>
#include <string_view>

namespace quelta {

/** Whether the framework's strings can take `text` as UTF-8. False with a NUL in it. */
bool isValidUtf8(const std::string& text);

/** `bytes` as they are if they are valid UTF-8 without NULs; otherwise with every byte taken for a
    Latin-1 character, which is what they mostly are then, and cut at the first NUL. */
std::string toValidUtf8(std::string_view bytes);

} // namespace quelta
