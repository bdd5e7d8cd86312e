# SPDX-License-Identifier: Apache-2.0
#
# CPack runs this on the files of each package before it packs them. Directories get
# mode 0755 for any umask of the build; manual pages are compressed, as in every
# package of the distribution; debug symbols are set apart for packages of their own; and
# every file gets the time SOURCE_DATE_EPOCH, if it is set. So the same sources give the
# same packages.
execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -type d -exec chmod 0755 {} +
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -path "*/share/man/man*" -type f -exec gzip -9nf {} +
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/split_debug" "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" "${CPACK_TOPLEVEL_DIRECTORY}/debug-symbols"
  COMMAND_ERROR_IS_FATAL ANY)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -exec touch -h -d "@$ENV{SOURCE_DATE_EPOCH}" {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()
