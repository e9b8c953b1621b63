# SPDX-License-Identifier: Apache-2.0
# What a host gets: libFiberModel and libLidarLib with their headers and CMake package files, and the
# program. The shared libraries are made from the objects of the static ones, which our own programs
# and tests link; they export only what is marked FIBER_API or LIDARLIB_API.
include(CMakePackageConfigHelpers)

set(LIDARLIB_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/LidarLib)
set(LIDARLIB_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/LidarLib)

# lidarlib_shared_library(NAME OBJECTS static targets... LINKS libraries...)
function(lidarlib_shared_library NAME)
  cmake_parse_arguments(ARG "" "" "OBJECTS;LINKS" ${ARGN})
  list(TRANSFORM ARG_OBJECTS REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  add_library(${NAME} SHARED ${objects})
  target_compile_features(${NAME} INTERFACE cxx_std_20)
  target_include_directories(${NAME} INTERFACE $<INSTALL_INTERFACE:${LIDARLIB_HEADER_DIR}>)
  target_link_libraries(${NAME} PRIVATE ${ARG_LINKS})
  set_target_properties(${NAME} PROPERTIES
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    INSTALL_RPATH "$ORIGIN")
  if(NOT LIDARLIB_SANITIZE)
    target_link_options(${NAME} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()

lidarlib_shared_library(FiberModel
  OBJECTS fiber_model fiber_container_codecs
  LINKS fmt::fmt OpenMP::OpenMP_CXX hdf5::hdf5 PkgConfig::LIBDEFLATE PkgConfig::HWY
        $<TARGET_NAME_IF_EXISTS:PkgConfig::ISAL>)
lidarlib_shared_library(LidarLib
  OBJECTS lidar_planning lidar_assembly lidar_operation lidar_linked
  LINKS fmt::fmt OpenMP::OpenMP_CXX PkgConfig::HWY)
target_link_libraries(LidarLib PUBLIC FiberModel)

install(TARGETS FiberModel LidarLib EXPORT LidarLibTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT LidarLibTargets NAMESPACE LidarLib:: DESTINATION ${LIDARLIB_PACKAGE_DIR})
install(TARGETS refragment RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The headers that the operation's header includes, under the paths that the code includes them by.
foreach(folder memcore eagle fiber convlib)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/datamodel/${folder}
          DESTINATION ${LIDARLIB_HEADER_DIR}/datamodel FILES_MATCHING PATTERN "*.hpp")
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/operation/RefragmentAndSplit.hpp
        DESTINATION ${LIDARLIB_HEADER_DIR}/operation)
install(FILES ${PROJECT_SOURCE_DIR}/planning/InputSurvey.hpp
              ${PROJECT_SOURCE_DIR}/planning/TilingAttributes.hpp
        DESTINATION ${LIDARLIB_HEADER_DIR}/planning)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/LidarLibConfig.cmake.in ${PROJECT_BINARY_DIR}/LidarLibConfig.cmake
  INSTALL_DESTINATION ${LIDARLIB_PACKAGE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/LidarLibConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/LidarLibConfig.cmake
              ${PROJECT_BINARY_DIR}/LidarLibConfigVersion.cmake
        DESTINATION ${LIDARLIB_PACKAGE_DIR})
