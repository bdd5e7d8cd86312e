# SPDX-License-Identifier: Apache-2.0
#
# Run by CPack on the files of each package before it packs them: with
# SOURCE_DATE_EPOCH set, every one carries that time, so that the same sources
# give the same packages.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -exec touch -h -d "@$ENV{SOURCE_DATE_EPOCH}" {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()
