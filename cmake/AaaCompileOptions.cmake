# SPDX-License-Identifier: Apache-2.0
#
# Interface targets that every target of the tree links privately:
#   aaa_warnings    the warning set, errors when AAA_WERROR is on
#   aaa_instrument  sanitizers and coverage

add_library(aaa_warnings INTERFACE)
target_compile_options(aaa_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
  $<$<BOOL:${AAA_WERROR}>:-Werror>)

add_library(aaa_instrument INTERFACE)
if(AAA_SANITIZE)
  target_compile_options(aaa_instrument INTERFACE
    -fsanitize=${AAA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  target_link_options(aaa_instrument INTERFACE -fsanitize=${AAA_SANITIZE})
endif()
if(AAA_COVERAGE)
  target_compile_options(aaa_instrument INTERFACE --coverage -O0 -g)
  target_link_options(aaa_instrument INTERFACE --coverage)
endif()
if(AAA_BUILD_FUZZERS)
  # What a fuzzer steers by; the fuzzer's own main comes with its link.
  target_compile_options(aaa_instrument INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(aaa_instrument INTERFACE -fsanitize=fuzzer-no-link)
endif()
