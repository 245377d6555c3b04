# SPDX-License-Identifier: Apache-2.0
# What an installation holds: both libraries, their headers, and what CMake and pkg-config need to find them.
include(CMakePackageConfigHelpers)

install(TARGETS tovix sim EXPORT TovixTargets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/Include/tovixapi DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Tovix)
install(EXPORT TovixTargets NAMESPACE tovix:: DESTINATION ${package_dir})
file(CONFIGURE OUTPUT TovixConfig.cmake CONTENT "include(\${CMAKE_CURRENT_LIST_DIR}/TovixTargets.cmake)\n" @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TovixConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TovixConfig.cmake ${PROJECT_BINARY_DIR}/TovixConfigVersion.cmake
        DESTINATION ${package_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/tovix.pc.in tovix.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tovix.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
