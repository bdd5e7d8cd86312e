# SPDX-License-Identifier: Apache-2.0
#
# Interface targets that every target of the tree links privately:
#   aaa_warnings    the warnings, which are errors when AAA_WERROR is on
#   aaa_instrument  sanitizers, coverage, and the hardening of optimised builds

add_library(aaa_warnings INTERFACE)
target_compile_options(aaa_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
  $<$<BOOL:${AAA_WERROR}>:-Werror>)
# gcc 12 warns about its own std::string and std::optional when they are inlined.
if(CMAKE_BUILD_TYPE MATCHES "Rel" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(aaa_warnings INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict> $<$<COMPILE_LANGUAGE:CXX>:-Wno-error=maybe-uninitialized>
    # In tests also about the comparisons of texts that GoogleTest inlines.
    "$<$<BOOL:$<TARGET_PROPERTY:AAA_TEST_CODE>>:-Wno-error=array-bounds;-Wno-error=stringop-overflow;-Wno-error=stringop-overread>")
endif()
# clang 14 warns about the parentheses that the grammar requires around a comparison in a
# fold expression, when the expression has one operand. Its -Wconversion is about signs too,
# which gcc's is not in C++.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(aaa_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-parentheses-equality> -Wno-sign-conversion)
endif()

add_library(aaa_instrument INTERFACE)
# True for targets in folders that call aaa_compile_tests().
define_property(TARGET PROPERTY AAA_TEST_CODE INITIALIZE_FROM_VARIABLE AAA_TEST_CODE
  BRIEF_DOCS "Code of tests: under sanitizers the time to compile it matters, not its speed")
if(AAA_SANITIZE)
  target_compile_options(aaa_instrument INTERFACE
    -fsanitize=${AAA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  target_link_options(aaa_instrument INTERFACE -fsanitize=${AAA_SANITIZE})
  # Of clang, when C and C++ compilers and linkers are called as programs: AAA_CLANG_SANITIZE.
  set(AAA_CLANG_SANITIZE "")
  # It has these checks in its runtime for C++ only, and programs in C link the libraries.
  if(AAA_SANITIZE MATCHES "undefined" AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(aaa_instrument INTERFACE -fno-sanitize=function,vptr)
    list(APPEND AAA_CLANG_SANITIZE -fno-sanitize=function,vptr)
  endif()
  # One runtime for a program and the libraries that it loads, as gcc has it: tests replace
  # functions of it, preload libraries, and load them into programs of other languages.
  if(AAA_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND NOT AAA_BUILD_FUZZERS)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-runtime-dir
      OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    target_link_options(aaa_instrument INTERFACE -shared-libasan "LINKER:-rpath,${runtime}")
    target_compile_definitions(aaa_instrument INTERFACE AAA_SHARED_ASAN)
    list(APPEND AAA_CLANG_SANITIZE -shared-libasan "-Wl,-rpath,${runtime}")
  endif()
  # gcc's names for what clang 14 has only __has_feature().
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    if(AAA_SANITIZE MATCHES "thread")
      target_compile_definitions(aaa_instrument INTERFACE __SANITIZE_THREAD__)
    elseif(AAA_SANITIZE MATCHES "address")
      target_compile_definitions(aaa_instrument INTERFACE __SANITIZE_ADDRESS__)
    endif()
  endif()
  # Memory accesses are checked in calls, not in place: slower, and faster to compile.
  set(AAA_CHECK_IN_CALLS "")
  if(AAA_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set(AAA_CHECK_IN_CALLS "SHELL:--param asan-instrumentation-with-call-threshold=0")
  endif()
  # Test code takes most of the time of a sanitized build, and these options save a third of
  # it. Null and misaligned pointers of tests are left to the address sanitizer and the
  # processor.
  set(cheap -O0 -g1 ${AAA_CHECK_IN_CALLS})
  if(AAA_SANITIZE MATCHES "undefined")
    list(APPEND cheap -fno-sanitize=null,alignment,object-size,vptr)
  endif()
  target_compile_options(aaa_instrument INTERFACE
    "$<$<BOOL:$<TARGET_PROPERTY:AAA_TEST_CODE>>:${cheap}>")
endif()
# aaa_compile_quickly(target): for code whose speed does not matter in tests. Under sanitizers,
# optimising it takes more than half of the time to compile it. Fuzzing runs the same code
# millions of times: optimised, 20 times as often.
function(aaa_compile_quickly target)
  if(AAA_SANITIZE AND NOT AAA_BUILD_FUZZERS)
    target_compile_options(${target} PRIVATE -O0 -g1 ${AAA_CHECK_IN_CALLS})
  endif()
endfunction()
if(AAA_COVERAGE)
  target_compile_options(aaa_instrument INTERFACE --coverage -fprofile-update=atomic -O0 -g) # counters of threads too
  # A shared object that uses another's counters would prevent its unloading.
  target_link_options(aaa_instrument INTERFACE --coverage LINKER:--exclude-libs,libgcov.a)
endif()
if(AAA_BUILD_FUZZERS)
  # Coverage for the fuzzer; its main function is linked into the fuzz targets only. The
  # checksum of the list compiles everything again when it has changed.
  set(uncounted "${PROJECT_SOURCE_DIR}/fuzz/uncounted_code")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${uncounted}")
  file(MD5 "${uncounted}" checksum)
  target_compile_definitions(aaa_instrument INTERFACE "AAA_UNCOUNTED_CODE=${checksum}")
  target_compile_options(aaa_instrument INTERFACE
    -fsanitize=fuzzer-no-link "-fsanitize-coverage-ignorelist=${uncounted}"
    # Null pointers end the process anyway, and the address sanitizer sees what is too large.
    -fno-sanitize=null,object-size,vptr)
  target_link_options(aaa_instrument INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Shipped builds are hardened, and so are the release preset's measurements and tests.
# Libraries are not linked with -z now or -Bsymbolic, because a program's own platform
# functions override the host's, and a platform may lack a function that no one calls;
# and not with -z nodlopen, because modules load the library.
if(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT AAA_SANITIZE AND NOT AAA_COVERAGE AND NOT AAA_BUILD_FUZZERS)
  set(AAA_HARDEN_DEFAULT ON)
else()
  set(AAA_HARDEN_DEFAULT OFF)
endif()
option(AAA_HARDEN "Build with stack, string function and control flow protection" ${AAA_HARDEN_DEFAULT})
if(AAA_HARDEN)
  file(RELATIVE_PATH AAA_WAY_TO_SOURCES "${PROJECT_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")
  string(REGEX REPLACE "/$" "" AAA_WAY_TO_SOURCES "${AAA_WAY_TO_SOURCES}")
  target_compile_options(aaa_instrument INTERFACE
    -fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    # The same bytes in any directory, also when the compiler cache makes the paths relative.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=" $<$<BOOL:${AAA_WAY_TO_SOURCES}>:-ffile-prefix-map=${AAA_WAY_TO_SOURCES}/=>)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|i[3-6]86)$")
    target_compile_options(aaa_instrument INTERFACE -fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    target_compile_options(aaa_instrument INTERFACE -mbranch-protection=standard)
  endif()
  target_link_options(aaa_instrument INTERFACE LINKER:-z,relro LINKER:-z,noexecstack LINKER:--build-id=sha1)
endif()
