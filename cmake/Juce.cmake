# JUCE, compiled from the sources that Debian's juce-modules-source-data installs.
find_path(JUCE_MODULES_DIR juce_core/juce_core.h
  PATHS /usr/share/juce/modules NO_CMAKE_FIND_ROOT_PATH REQUIRED
  DOC "Folder of JUCE's modules (Debian package juce-modules-source-data)")

find_package(Threads REQUIRED)

add_library(quelta_juce STATIC
  ${JUCE_MODULES_DIR}/juce_core/juce_core.cpp
  ${JUCE_MODULES_DIR}/juce_events/juce_events.cpp)

target_include_directories(quelta_juce SYSTEM PUBLIC ${JUCE_MODULES_DIR})

target_compile_definitions(quelta_juce PUBLIC
  JUCE_GLOBAL_MODULE_SETTINGS_INCLUDED=1
  JUCE_STANDALONE_APPLICATION=1
  JUCE_USE_CURL=0
  JUCE_DISABLE_JUCE_VERSION_PRINTING=1
  DONT_SET_USING_JUCE_NAMESPACE=1
  $<IF:$<CONFIG:Debug>,DEBUG=1,NDEBUG=1>)

target_compile_options(quelta_juce PRIVATE -w)
set_target_properties(quelta_juce PROPERTIES UNITY_BUILD OFF) # each module is one source already

if(WIN32)
  target_compile_definitions(quelta_juce PUBLIC _WIN32_WINNT=0x0A00)
  target_link_libraries(quelta_juce PUBLIC
    z uuid wininet version ole32 ws2_32 oleaut32 imm32 comdlg32 shlwapi rpcrt4 winmm
    Threads::Threads)
  # The programs need no runtime libraries beside them.
  target_link_options(quelta_juce PUBLIC -static)
else()
  target_link_libraries(quelta_juce PUBLIC Threads::Threads dl rt z)
endif()
