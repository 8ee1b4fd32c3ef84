# The archive that cpack makes of a build: the programs with everything an operator needs.

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(package_system win64)
  set(package_newlines DOS)
  set(package_licences JUCE-modules zlib CLI11 nlohmann-json tomlplusplus Boost gcc-runtime
    mingw-w64-runtime winpthreads)
else()
  # On Linux zlib and the compiler's runtime are the system's.
  set(CPACK_GENERATOR TGZ)
  set(package_system linux-${CMAKE_SYSTEM_PROCESSOR})
  set(package_newlines UNIX)
  set(package_licences JUCE-modules CLI11 nlohmann-json tomlplusplus Boost)
endif()

set(CPACK_PACKAGE_NAME quelta-daemon)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME ${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-${package_system})
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

# The programs look for their files beside themselves, so the archive has one folder.
install(TARGETS quelta_daemon quelta_standin_slave quelta_master quelta_exec_slave
  RUNTIME DESTINATION .)

# package_text(SOURCE FOLDER [NAME]): adds a text with variables replaced and the system's line
# ends.
function(package_text source folder)
  get_filename_component(name ${source} NAME)

  if(ARGC GREATER 2)
    set(name ${ARGV2})
  endif()

  configure_file(${CMAKE_SOURCE_DIR}/${source} ${CMAKE_BINARY_DIR}/package/${folder}/${name}
    @ONLY NEWLINE_STYLE ${package_newlines})
  install(FILES ${CMAKE_BINARY_DIR}/package/${folder}/${name} DESTINATION ${folder})
endfunction()

package_text(packaging/README.txt .)
package_text(packaging/quelta_daemon_log_flags.txt .)
package_text(SECURITY.md .)
package_text(docs/operation.md docs)
package_text(tools/exec_slave/README.md docs exec_slave.md)
package_text(packaging/quelta_exec_slave.toml.example .)

if(WIN32)
  package_text(packaging/windows/check-windows.ps1 .)
  package_text(packaging/windows/check-windows-support.ps1 .)
else()
  package_text(packaging/linux/quelta_daemon.service .)
endif()

foreach(name ${package_licences})
  package_text(packaging/licences/${name}.txt licences)
endforeach()

include(CPack)
