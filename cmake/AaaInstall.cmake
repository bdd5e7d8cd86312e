# SPDX-License-Identifier: Apache-2.0
#
# The CMake package (find_package(aaautil)) and the pkg-config files, by which other
# projects find an installed libaaautil. Include after the targets.

include(CMakePackageConfigHelpers)

set(AAA_CONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/aaautil")
configure_package_config_file(cmake/aaautil-config.cmake.in aaautil-config.cmake INSTALL_DESTINATION "${AAA_CONFIG_DIR}")
write_basic_package_version_file(aaautil-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/aaautil-config.cmake" "${PROJECT_BINARY_DIR}/aaautil-config-version.cmake"
  DESTINATION "${AAA_CONFIG_DIR}" COMPONENT development)
install(EXPORT aaautil FILE aaautil-targets.cmake NAMESPACE aaautil:: DESTINATION "${AAA_CONFIG_DIR}" COMPONENT development)

# Paths are relative to the .pc file, so that an installed tree can be moved, unless
# the directories were given as absolute paths.
set(AAA_PC_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(AAA_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(AAA_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(AAA_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH AAA_PC_PREFIX "/${AAA_PC_DIR}" "/")
  string(REGEX REPLACE "/$" "" AAA_PC_PREFIX "\${pcfiledir}/${AAA_PC_PREFIX}")
  set(AAA_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(AAA_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
foreach(name aaautil aaaclient aaaplatform aaautil-testkit aaautil-testkit-alloc)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${AAA_PC_DIR}" COMPONENT development)
endforeach()
