# The instruction sets that kernels are compiled for, from their table in platform/InstructionSet.h.
#
# CM_KERNEL_SWITCHES   what the switch CM_KERNELS knows
# CM_KERNEL_SETS       those of them that this build has kernels for
# CM_AVX_KERNELS       whether those of wider registers are among them; CM_NEON_KERNELS likewise
# cm_kernels(PREFIX...)   has each file PREFIX<Set>.cpp compiled for its set, or left out

set(CM_AVX_KERNELS OFF)
set(CM_NEON_KERNELS OFF)
if(CM_VECTOR_KERNELS AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$" AND NOT APPLE)
  set(CM_AVX_KERNELS ON)
elseif(CM_VECTOR_KERNELS AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$" AND NOT APPLE)
  set(CM_NEON_KERNELS ON)
endif()

set(table ${PROJECT_SOURCE_DIR}/platform/InstructionSet.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${table})
file(READ ${table} rows)
string(REGEX MATCHALL "SET\\([A-Z][A-Za-z0-9]*, \"[a-z0-9]+\", [^\\\n/]*" rows "${rows}")
set(CM_KERNEL_SWITCHES)
set(CM_KERNEL_SETS)
set(CM_X86_SETS)  # as code names them, each with its options in CM_OPTIONS_<Set>
foreach(row IN LISTS rows)
  string(REGEX MATCH "SET\\(([A-Za-z0-9]+), \"([a-z0-9]+)\"" found "${row}")
  set(name ${CMAKE_MATCH_1})
  set(switch ${CMAKE_MATCH_2})
  list(APPEND CM_KERNEL_SWITCHES ${switch})
  string(REGEX MATCHALL "CM_CPU_HAS\\(\"[a-z0-9]+\"\\)" options "${row}")
  if(options)
    list(TRANSFORM options REPLACE "CM_CPU_HAS\\(\"(.*)\"\\)" "-m\\1")
    set(CM_OPTIONS_${name} -O3 ${options})
    list(APPEND CM_X86_SETS ${name})
    set(has_set ${CM_AVX_KERNELS})
  elseif(row MATCHES "CM_CPU_IS_ARM64")
    set(has_set ${CM_NEON_KERNELS})
  else()
    set(has_set ON)
  endif()
  if(has_set)
    list(APPEND CM_KERNEL_SETS ${switch})
  endif()
endforeach()
if(NOT CM_X86_SETS)
  message(FATAL_ERROR "no table of instruction sets in ${table}")
endif()

function(cm_kernels)
  foreach(prefix IN LISTS ARGN)
    set_source_files_properties(${prefix}Portable.cpp ${prefix}Neon.cpp PROPERTIES COMPILE_OPTIONS -O3)
    foreach(set IN LISTS CM_X86_SETS)
      if(CM_AVX_KERNELS)
        # g++ takes the vectors that its own intrinsics leave undefined for ours.
        set_source_files_properties(${prefix}${set}.cpp PROPERTIES
          COMPILE_OPTIONS "${CM_OPTIONS_${set}};$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>;$<$<CXX_COMPILER_ID:GNU>:-Wno-uninitialized>")
      else()
        set_source_files_properties(${prefix}${set}.cpp PROPERTIES HEADER_FILE_ONLY ON)
      endif()
    endforeach()
  endforeach()
endfunction()
