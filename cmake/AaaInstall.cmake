# SPDX-License-Identifier: Apache-2.0
#
# The CMake package (find_package(aaautil)) and the pkg-config files, by which other
# projects find an installed libaaautil. Include after the targets.

include(CMakePackageConfigHelpers)

set(AAA_CONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/aaautil")
configure_package_config_file(cmake/aaautil-config.cmake.in aaautil-config.cmake INSTALL_DESTINATION "${AAA_CONFIG_DIR}"
  PATH_VARS CMAKE_INSTALL_DATADIR)
write_basic_package_version_file(aaautil-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/aaautil-config.cmake" "${PROJECT_BINARY_DIR}/aaautil-config-version.cmake"
  DESTINATION "${AAA_CONFIG_DIR}" COMPONENT development)
install(EXPORT aaautil FILE aaautil-targets.cmake NAMESPACE aaautil:: DESTINATION "${AAA_CONFIG_DIR}" COMPONENT development)

# The paths are absolute: pkg-config leaves out those that the compiler searches anyway only if
# it recognises them. For a tree that was moved: pkg-config --define-variable=prefix=PLACE.
set(AAA_PC_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
foreach(directory LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${directory}}")
    set(AAA_PC_${directory} "${CMAKE_INSTALL_${directory}}")
  else()
    set(AAA_PC_${directory} "\${prefix}/${CMAKE_INSTALL_${directory}}")
  endif()
endforeach()
# The C++ headers have targets of their own: with the C headers alone, none names what is not there.
# They are the same on every architecture, and so are the directories.
install(EXPORT aaautil-cpp FILE aaautil-cpp-targets.cmake NAMESPACE aaautil::
  DESTINATION "${CMAKE_INSTALL_DATADIR}/cmake/aaautil-cpp" COMPONENT cpp)
configure_file(cmake/aaautil-cpp.pc.in aaautil-cpp.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/aaautil-cpp.pc" DESTINATION "${CMAKE_INSTALL_DATADIR}/pkgconfig" COMPONENT cpp)
foreach(name aaautil aaaclient aaaplatform aaautil-testkit aaautil-testkit-alloc)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${AAA_PC_DIR}" COMPONENT development)
endforeach()
