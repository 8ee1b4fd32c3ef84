# Warnings for this project's own code; JUCE and GoogleTest are compiled without any. The presets
# make them errors (CMAKE_COMPILE_WARNING_AS_ERROR), a plain build with another compiler does not.
add_library(quelta_warnings INTERFACE)
target_compile_options(quelta_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow)

# windows.h without its macros min and max, and without the rarely used parts.
if(WIN32)
  target_compile_definitions(quelta_warnings INTERFACE NOMINMAX=1 WIN32_LEAN_AND_MEAN=1)
endif()
