# What every target of the project is compiled with.

option(CM_WARNINGS_ARE_ERRORS "Let a warning end the build; the presets do" OFF)
set(CM_SANITIZE "" CACHE STRING "Sanitizers: empty, address,undefined or thread")

add_library(cm_settings INTERFACE)
target_compile_features(cm_settings INTERFACE cxx_std_20 c_std_17)
target_include_directories(cm_settings INTERFACE ${PROJECT_SOURCE_DIR})
# Results are exact to the bit: a fused multiply-add would change the last one.
target_compile_options(cm_settings INTERFACE
  -ffp-contract=off -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
  $<$<BOOL:${CM_WARNINGS_ARE_ERRORS}>:-Werror>
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
if(CM_SANITIZE)
  target_compile_options(cm_settings INTERFACE -fsanitize=${CM_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(cm_settings INTERFACE -fsanitize=${CM_SANITIZE})
endif()

# What a distribution hardens its programs with; tools/check_binaries reads it back from what was built. Sanitizers bring checks of their own.
if(NOT APPLE AND NOT CM_SANITIZE)
  target_compile_options(cm_settings INTERFACE -fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    target_compile_options(cm_settings INTERFACE -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    target_compile_options(cm_settings INTERFACE -mbranch-protection=standard)
  endif()
  # The checked forms of the C library's functions exist in optimised code only.
  target_compile_options(cm_settings INTERFACE "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  target_link_options(cm_settings INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
endif()

function(cm_target name)
  set_target_properties(${name} PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON CXX_EXTENSIONS OFF)
  target_link_libraries(${name} PRIVATE cm_settings)
endfunction()

# Test programs are compiled for the time that compiling them takes: lightly optimised, and with lines but no variables for the debugger.
function(cm_test_options name)
  if(CMAKE_BUILD_TYPE STREQUAL RelWithDebInfo)
    target_compile_options(${name} PRIVATE -O1 -g1)
  endif()
endfunction()
