# SPDX-License-Identifier: Apache-2.0
#
# Compiles through ccache where it is installed, unless the caller named a
# launcher of his own or AAA_COMPILER_CACHE is off. Coverage builds go without:
# their note files carry the directory in which they were written.

if(AAA_COMPILER_CACHE AND NOT AAA_COVERAGE)
  find_program(AAA_CCACHE ccache DOC "Compiler cache")
  mark_as_advanced(AAA_CCACHE)
  if(AAA_CCACHE)
    foreach(language C CXX)
      if(NOT CMAKE_${language}_COMPILER_LAUNCHER)
        # Precompiled headers are cached only with these two freedoms: definitions
        # and time stamps inside them do not count.
        set(CMAKE_${language}_COMPILER_LAUNCHER
          "${CMAKE_COMMAND};-E;env;CCACHE_SLOPPINESS=pch_defines,time_macros;${AAA_CCACHE}")
      endif()
    endforeach()
  endif()
endif()
