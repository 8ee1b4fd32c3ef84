// The page, which the build embeds: see EmbedPage.cmake.
#pragma once

#include <string_view>

namespace quelta::farmview {

std::string_view farmPage();

/** The Content-Security-Policy that allows exactly the page's own styles and scripts. */
std::string_view farmPagePolicy();

} // namespace quelta::farmview
