# The version and the application manifest of each program for Windows.

if(WIN32)
  enable_language(RC)
endif()

# quelta_add_windows_resources(TARGET DESCRIPTION): does nothing on other systems.
function(quelta_add_windows_resources target description)
  if(NOT WIN32)
    return()
  endif()

  set(PROGRAM ${target})
  set(PROGRAM_DESCRIPTION ${description})
  set(folder ${CMAKE_BINARY_DIR}/resources/${target})
  configure_file(${CMAKE_SOURCE_DIR}/packaging/windows/program.manifest.in ${folder}/program.manifest @ONLY)
  configure_file(${CMAKE_SOURCE_DIR}/packaging/windows/program.rc.in ${folder}/program.rc @ONLY)
  set_source_files_properties(${folder}/program.rc PROPERTIES OBJECT_DEPENDS ${folder}/program.manifest)

  # A separate library, because the resource compiler rejects the program's compiler options.
  add_library(${target}_resources OBJECT ${folder}/program.rc)
  target_include_directories(${target}_resources PRIVATE ${folder})
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:${target}_resources>)
endfunction()

quelta_add_windows_resources(quelta_daemon "Quelta Slave Daemon")
quelta_add_windows_resources(quelta_standin_slave "Quelta Stand-in Render Slave")
quelta_add_windows_resources(quelta_master "Quelta Console Master")
quelta_add_windows_resources(quelta_exec_slave "Quelta Exec Slave")
