# SPDX-License-Identifier: Apache-2.0
#
# Compilation of the sources of tests and fuzz targets. They take most of the time
# of a whole run, and GoogleTest's headers take most of that.
#
#   aaa_compile_tests()           for a folder: its targets are test code, which
#                                 AaaCompileOptions.cmake compiles for a short build;
#                                 the library and the platform are in other folders
#   aaa_precompile_gtest(target)  GoogleTest's headers from one precompiled header

option(AAA_PRECOMPILE "Precompile the headers of GoogleTest" ON)

macro(aaa_compile_tests)
  if(NOT AAA_BUILD_FUZZERS)
    set(AAA_TEST_CODE ON)
  endif()
endmacro()

# Executables only: an object library is compiled with -fPIC, and a compiler
# rejects a precompiled header that was made with other options.
function(aaa_precompile_gtest target)
  if(NOT AAA_PRECOMPILE)
    return()
  endif()
  if(NOT TARGET aaa_precompiled_gtest)
    set(source "${PROJECT_BINARY_DIR}/precompiled_gtest.cc")
    file(CONFIGURE OUTPUT "${source}" CONTENT "int main() {}\n")
    add_executable(aaa_precompiled_gtest EXCLUDE_FROM_ALL "${source}")
    target_precompile_headers(aaa_precompiled_gtest PRIVATE <gtest/gtest.h>)
    target_link_libraries(aaa_precompiled_gtest PRIVATE GTest::gtest aaa_warnings aaa_instrument)
  endif()
  target_precompile_headers(${target} REUSE_FROM aaa_precompiled_gtest)
endfunction()
