# SPDX-License-Identifier: Apache-2.0
# Every folder under Source/ is a module: one object library that sees its own headers, the installed headers, and the
# headers of the modules that it names, and nothing else.

add_library(tovix_flags INTERFACE)
target_compile_features(tovix_flags INTERFACE cxx_std_20 c_std_11)
target_compile_options(tovix_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow -Wpedantic)
target_compile_options(tovix_flags INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>)
target_include_directories(tovix_flags INTERFACE ${PROJECT_SOURCE_DIR}/Include)

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# tovix_module(NAME SOURCES file... [USES module...] [LINKS target...])
function(tovix_module name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;USES;LINKS")
  add_library(tovix_${name} OBJECT ${arg_SOURCES})
  target_include_directories(tovix_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  list(TRANSFORM arg_USES PREPEND tovix_)
  target_link_libraries(tovix_${name} PUBLIC tovix_flags ${arg_USES} ${arg_LINKS})
endfunction()
