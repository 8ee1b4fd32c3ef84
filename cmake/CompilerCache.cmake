# Compiles through ccache where it is installed. Any other launcher, or an empty one, can be set in
# CMAKE_CXX_COMPILER_LAUNCHER, as a cache variable or in the environment.
if(NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(CCACHE_PROGRAM ccache DOC "The program ccache")

  if(CCACHE_PROGRAM)
    # ccache does not cache users of a precompiled header without these.
    set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
  endif()
endif()

# clang rejects a precompiled header that is older than a header in it, and so one from the cache.
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES ccache AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
endif()
