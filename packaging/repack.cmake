# SPDX-License-Identifier: Apache-2.0
#
# CPack runs this after making its packages: dpkg-deb packs each again, because
# CPack's archives contain the user and the umask of the build.
find_program(DPKG_DEB dpkg-deb REQUIRED)
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree "${package}.tree")
  foreach(command IN ITEMS
      "${DPKG_DEB};--raw-extract;${package};${tree}"
      "chmod;0755;${tree};${tree}/DEBIAN"
      "${DPKG_DEB};--root-owner-group;--build;${tree};${package}")
    execute_process(COMMAND ${command} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  file(CHMOD "${package}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(REMOVE_RECURSE "${tree}")
endforeach()
