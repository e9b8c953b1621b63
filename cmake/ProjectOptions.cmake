# SPDX-License-Identifier: Apache-2.0
# One INTERFACE target carries the language standard and the warnings of every target of ours.
add_library(lidarlib_options INTERFACE)
target_compile_features(lidarlib_options INTERFACE cxx_std_20)
target_include_directories(lidarlib_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(lidarlib_options INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Werror -fvisibility=hidden -fvisibility-inlines-hidden)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release")
  # At -O3 g++ 12 sees overflows in inlined code of the standard library that are not there (strings
  # put together with +, vectors resized). The other presets keep these warnings on.
  target_compile_options(lidarlib_options INTERFACE
    -Wno-restrict -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_EXTENSIONS OFF)

set(LIDARLIB_SANITIZE "" CACHE STRING "Sanitizers for everything of ours: address,undefined or thread")
if(LIDARLIB_SANITIZE)
  add_compile_options(-fsanitize=${LIDARLIB_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${LIDARLIB_SANITIZE})
  if(LIDARLIB_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

find_program(LIDARLIB_CCACHE ccache)
if(LIDARLIB_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${LIDARLIB_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${LIDARLIB_CCACHE})
endif()
