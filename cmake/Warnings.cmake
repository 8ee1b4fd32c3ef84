# What our own code is compiled with; the framework's sources are not.
add_library(quelta_warnings INTERFACE)
target_compile_options(quelta_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
