# SPDX-License-Identifier: Apache-2.0
#
# Precompiled headers: reading the standard library takes up to half of the time to compile a
# source of aaactl, and reading GoogleTest most of the time to compile a test.
#
#   aaa_precompile_std(target)    the standard library, for a target of the product;
#                                 only in debug builds: what is shipped, and the build
#                                 that tests it, read each header where it is included
#   aaa_precompile_shared(target) the same header for static libraries, compiled once for all
#                                 of them; they have no compile options of their own but
#                                 those of aaa_compile_quickly(), which it calls
#   aaa_precompile_gtest(target)  GoogleTest and the standard library, for an executable
#                                 or an object library that only executables link
#
# A source that forgets to include a header is found by the package preset, or with
# -DAAA_PRECOMPILE=OFF.

option(AAA_PRECOMPILE "Precompile the headers of GoogleTest and, in debug builds, of the standard library" ON)

# What the sources include most often.
set(AAA_STANDARD_HEADERS <algorithm> <array> <atomic> <cerrno> <charconv> <cstdint> <cstdio> <cstdlib> <cstring>
  <functional> <map> <memory> <mutex> <optional> <set> <string> <string_view> <utility> <vector>)

# A precompiled header counts as memory in use: by default, gcc would search it for
# garbage in each compilation.
function(aaa_collect_garbage_late target)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:--param=ggc-min-heapsize=400000>)
endfunction()

function(aaa_precompile_std target)
  if(NOT AAA_PRECOMPILE OR NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    return()
  endif()
  list(TRANSFORM AAA_STANDARD_HEADERS REPLACE "<(.*)>" "$<$<COMPILE_LANGUAGE:CXX>:<\\1$<ANGLE-R>>" OUTPUT_VARIABLE headers)
  target_precompile_headers(${target} PRIVATE ${headers})
  aaa_collect_garbage_late(${target})
endfunction()

function(aaa_precompile_shared target)
  aaa_compile_quickly(${target})
  if(NOT AAA_PRECOMPILE OR NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    return()
  endif()
  if(NOT TARGET aaa_precompiled_std)
    set(source "${PROJECT_BINARY_DIR}/precompiled_std.cc")
    file(CONFIGURE OUTPUT "${source}" CONTENT "\n")
    add_library(aaa_precompiled_std STATIC EXCLUDE_FROM_ALL "${source}")
    target_link_libraries(aaa_precompiled_std PRIVATE aaa_warnings aaa_instrument)
    aaa_compile_quickly(aaa_precompiled_std)
    aaa_precompile_std(aaa_precompiled_std)
  endif()
  target_precompile_headers(${target} REUSE_FROM aaa_precompiled_std)
  aaa_collect_garbage_late(${target})
endfunction()

function(aaa_precompile_gtest target)
  if(NOT AAA_PRECOMPILE)
    return()
  endif()
  if(NOT TARGET aaa_precompiled_gtest)
    set(source "${PROJECT_BINARY_DIR}/precompiled_gtest.cc")
    file(CONFIGURE OUTPUT "${source}" CONTENT "int main() {}\n")
    add_executable(aaa_precompiled_gtest EXCLUDE_FROM_ALL "${source}")
    target_precompile_headers(aaa_precompiled_gtest PRIVATE <gtest/gtest.h> ${AAA_STANDARD_HEADERS}
      <filesystem> <fstream> <iterator> <sstream> <thread>)
    target_link_libraries(aaa_precompiled_gtest PRIVATE GTest::gtest aaa_warnings aaa_instrument)
    aaa_collect_garbage_late(aaa_precompiled_gtest)
  endif()
  # A compiler rejects a precompiled header that was made with other options, and CMake
  # compiles an object library with -fPIC.
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "OBJECT_LIBRARY")
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_compile_options(${target} PRIVATE -fPIE)
  endif()
  target_precompile_headers(${target} REUSE_FROM aaa_precompiled_gtest)
  aaa_collect_garbage_late(${target})
endfunction()
