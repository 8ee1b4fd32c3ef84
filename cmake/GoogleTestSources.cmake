# GoogleTest from the sources that Debian's googletest package installs, so that the same
# version serves the native and the cross build.
find_path(GOOGLETEST_SOURCE_DIR googletest/src/gtest-all.cc
  PATHS /usr/src/googletest NO_CMAKE_FIND_ROOT_PATH REQUIRED
  DOC "Folder of GoogleTest's sources (Debian package googletest)")

add_library(quelta_gtest STATIC
  ${GOOGLETEST_SOURCE_DIR}/googletest/src/gtest-all.cc
  ${GOOGLETEST_SOURCE_DIR}/googlemock/src/gmock-all.cc)
target_include_directories(quelta_gtest SYSTEM
  PUBLIC ${GOOGLETEST_SOURCE_DIR}/googletest/include ${GOOGLETEST_SOURCE_DIR}/googlemock/include
  PRIVATE ${GOOGLETEST_SOURCE_DIR}/googletest ${GOOGLETEST_SOURCE_DIR}/googlemock)
target_link_libraries(quelta_gtest PUBLIC Threads::Threads)
# It compiles in a third of the time, and the tests are as fast.
target_compile_options(quelta_gtest PRIVATE -w -O0)
set_target_properties(quelta_gtest PROPERTIES UNITY_BUILD OFF)
