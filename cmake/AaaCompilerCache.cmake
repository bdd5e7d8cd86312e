# SPDX-License-Identifier: Apache-2.0
#
# Compiles through ccache if it is installed, unless the user named another launcher
# or AAA_COMPILER_CACHE is off. Coverage builds do not use it: their note files
# contain the directory in which they were written.

if(AAA_COMPILER_CACHE AND NOT AAA_COVERAGE)
  find_program(AAA_CCACHE ccache DOC "Compiler cache")
  mark_as_advanced(AAA_CCACHE)
  if(AAA_CCACHE)
    if(AAA_BUILD_FUZZERS) # what the compiler reads without ccache's knowledge
      set(extra "CCACHE_EXTRAFILES=${PROJECT_SOURCE_DIR}/fuzz/uncounted_code;")
    endif()
    foreach(language C CXX)
      if(NOT CMAKE_${language}_COMPILER_LAUNCHER)
        # ccache caches precompiled headers only when it may ignore definitions and
        # time stamps inside them.
        set(CMAKE_${language}_COMPILER_LAUNCHER
          "${CMAKE_COMMAND};-E;env;CCACHE_SLOPPINESS=pch_defines,time_macros;${extra}${AAA_CCACHE}")
      endif()
    endforeach()
  endif()
endif()
