// Cuts a stream of bytes into lines. Lines longer than maxLineLength are cut into pieces, between
// characters of UTF-8, so memory stays flat. Pure; not thread-safe.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace quelta::execslave {

constexpr size_t maxLineLength = 8192; ///< Bytes.

class LineSplitter
{
public:
    using Sink = std::function<void(std::string_view line)>;

    /** Passes each complete line to `sink`, without its line end (LF, CR LF or CR). */
    void add(std::string_view bytes, const Sink& sink);

    /** Passes on the last, incomplete line. */
    void finish(const Sink& sink);

private:
    std::string pending;
    bool afterReturn = false;
};

} // namespace quelta::execslave
