# Header-only libraries that the native and the cross build share.
#
# quelta_header_only_library(NAME FOLDER PACKAGE): an interface library for the headers in
# <FOLDER/...>, which Debian's PACKAGE installs. A cross build must not see the rest of
# /usr/include, hence a folder with nothing but a link to FOLDER.
function(quelta_header_only_library name folder package)
  find_path(${name}_PARENT_DIR ${folder} PATHS /usr/include /usr/local/include
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED
    DOC "Folder that holds ${folder}/ (Debian package ${package})")
  set(include_dir ${CMAKE_BINARY_DIR}/header_only/${name})
  file(MAKE_DIRECTORY ${include_dir})
  file(CREATE_LINK ${${name}_PARENT_DIR}/${folder} ${include_dir}/${folder} SYMBOLIC)
  add_library(${name} INTERFACE)
  target_include_directories(${name} SYSTEM INTERFACE ${include_dir})
endfunction()
