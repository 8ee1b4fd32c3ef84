# Puts the page together: page.html with page.css and the scripts inside it, nothing left to load.
#
#   cmake -D OUTPUT=FOLDER -P BuildPage.cmake
#
# writes index.html, the page, and content_security_policy.txt, the value of the header
# Content-Security-Policy that has to go with it. The policy names the style and the script by the
# SHA-256 of their exact bytes, so no other style or script runs, wherever it comes from. Included by
# another CMake file, the script provides build_page(OUTPUT) and the list page_sources.
cmake_minimum_required(VERSION 3.25)

set(page_folder ${CMAKE_CURRENT_LIST_DIR})
# In the order in which they need each other.
set(page_scripts text farm feed table chart timeline views main)
set(page_sources ${page_folder}/page.html ${page_folder}/page.css)
foreach(name IN LISTS page_scripts)
  list(APPEND page_sources ${page_folder}/script/${name}.js)
endforeach()

# Base64 of bytes in hexadecimal, whose number leaves a remainder of 2 when divided by 3, as that of
# a SHA-256 does.
function(page_base64 hex result)
  string(CONCAT alphabet "ABCDEFGHIJKLMNOPQRSTUVWXYZ" "abcdefghijklmnopqrstuvwxyz" "0123456789+/")
  set(text "")
  string(APPEND hex "00")
  string(LENGTH ${hex} length)
  math(EXPR last "${length} - 6")
  foreach(at RANGE 0 ${last} 6)
    string(SUBSTRING ${hex} ${at} 6 three)
    foreach(shift 18 12 6 0)
      math(EXPR index "(0x${three} >> ${shift}) & 63")
      string(SUBSTRING ${alphabet} ${index} 1 character)
      string(APPEND text ${character})
    endforeach()
  endforeach()
  string(REGEX REPLACE ".$" "=" text ${text})
  set(${result} ${text} PARENT_SCOPE)
endfunction()

function(page_hash content result)
  string(SHA256 hex "${content}")
  page_base64(${hex} base64)
  set(${result} "'sha256-${base64}'" PARENT_SCOPE)
endfunction()

function(build_page output)
  file(READ ${page_folder}/page.html page)
  file(READ ${page_folder}/page.css style)
  set(script "\"use strict\";\n(() => {\n")
  foreach(name IN LISTS page_scripts)
    file(READ ${page_folder}/script/${name}.js part)
    string(APPEND script "${part}\n")
  endforeach()
  string(APPEND script "})();\n")

  page_hash("${style}" style_hash)
  page_hash("${script}" script_hash)
  string(REPLACE "@PAGE_STYLE@" "${style}" page "${page}")
  string(REPLACE "@PAGE_SCRIPT@" "${script}" page "${page}")
  string(CONCAT policy
    "default-src 'none'; script-src ${script_hash}; style-src ${style_hash}; img-src data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'")
  file(WRITE ${output}/index.html "${page}")
  file(WRITE ${output}/content_security_policy.txt "${policy}")
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  build_page(${OUTPUT})
endif()
