# SPDX-License-Identifier: Apache-2.0

# Language level, warnings, visibility and sanitizers for everything in the project.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# The same bits, whichever folder they are built in. The last map that fits counts: builds may lie
# below the sources.
if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
                      -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# For C++ alone: the assembler's driver may be another compiler.
function(zaffo_cxx_options)
  foreach(option ${ARGN})
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:${option}>)
  endforeach()
endfunction()

zaffo_cxx_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  zaffo_cxx_options(-Wthread-safety)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 sees overlaps in its own std::string when it optimises (its bug 105651).
  zaffo_cxx_options(-Wno-restrict)
endif()
if(ZAFFO_WERROR)
  zaffo_cxx_options(-Werror)
endif()
if(ZAFFO_SANITIZE)
  zaffo_cxx_options(-fsanitize=${ZAFFO_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZAFFO_SANITIZE})
  if(ZAFFO_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # Asio has fences, which the sanitizer does not see; Asio's queues are under mutexes as well.
    zaffo_cxx_options(-Wno-tsan)
  endif()
endif()

# zaffo_precompile(TARGET HEADER): one precompiled header for all targets that name it and are
# compiled alike; the first of them makes it.
option(ZAFFO_PRECOMPILE "Precompile what most files include" ON)
function(zaffo_precompile target header)
  if(NOT ZAFFO_PRECOMPILE)
    return()
  endif()
  get_property(owner GLOBAL PROPERTY "ZAFFO_PRECOMPILED ${header}")
  if(owner)
    target_precompile_headers(${target} REUSE_FROM ${owner})
  else()
    target_precompile_headers(${target} PRIVATE ${header})
    set_property(GLOBAL PROPERTY "ZAFFO_PRECOMPILED ${header}" ${target})
  endif()
endfunction()
