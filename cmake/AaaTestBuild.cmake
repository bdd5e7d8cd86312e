# SPDX-License-Identifier: Apache-2.0
#
# Compilation of the sources of tests and fuzz targets. They take most of the time
# of a whole run, and GoogleTest's headers take most of that; AaaPrecompile.cmake
# precompiles these.
#
#   aaa_compile_tests()   for a folder: its targets are test code, which
#                         AaaCompileOptions.cmake compiles for a short build;
#                         the library and the platform are in other folders

macro(aaa_compile_tests)
  if(NOT AAA_BUILD_FUZZERS)
    set(AAA_TEST_CODE ON)
  endif()
endmacro()
