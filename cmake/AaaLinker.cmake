# SPDX-License-Identifier: Apache-2.0
#
# Links debug builds with lld if it is installed: a run of all tests links some 500
# programs. Other builds, such as the packages, have the compiler's own linker.

if(AAA_FAST_LINKER AND CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT AAA_COVERAGE)
  find_program(AAA_LLD ld.lld DOC "Fast linker")
  mark_as_advanced(AAA_LLD)
  if(AAA_LLD)
    add_link_options(-fuse-ld=lld)
  endif()
endif()
