# What our own code is compiled with; the framework's sources are not.
add_library(quelta_warnings INTERFACE)
target_compile_options(quelta_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

# The system's header without its macros min and max, and without what nobody here needs.
if(WIN32)
  target_compile_definitions(quelta_warnings INTERFACE NOMINMAX=1 WIN32_LEAN_AND_MEAN=1)
endif()
