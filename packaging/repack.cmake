# SPDX-License-Identifier: Apache-2.0
#
# CPack runs this after making its packages: each gets its final form, and those that hold
# programs and libraries a package of their debug symbols. Then all are described in a bill
# of materials. CPack copies its packages from here to CPACK_PACKAGE_DIRECTORY.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/finish_package" "${package}" "${CPACK_TOPLEVEL_DIRECTORY}/debug-symbols" "${CPACK_PACKAGE_DIRECTORY}"
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
find_package(Python3 REQUIRED COMPONENTS Interpreter)
list(GET CPACK_PACKAGE_FILES 0 first)
get_filename_component(packages "${first}" DIRECTORY)
execute_process(COMMAND "${Python3_EXECUTABLE}" "${CMAKE_CURRENT_LIST_DIR}/sbom" "${CPACK_AAA_BUILD_DIR}" "${CPACK_PACKAGE_VERSION}" "${packages}" "${CPACK_PACKAGE_DIRECTORY}"
  COMMAND_ERROR_IS_FATAL ANY)
