# Exports exactly the names of a checked-in list: on Linux through a version script made from it.

function(cm_export_names target list)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} names REGEX "^[A-Za-z_]")
  if(APPLE)
    list(APPEND names VImageConvertorExample)  # the one name that only this system has
    list(TRANSFORM names PREPEND "_" OUTPUT_VARIABLE names)
    string(REPLACE ";" "\n" text "${names}")
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/exported-names.txt CONTENT "${text}\n" @ONLY)
    target_link_options(${target} PRIVATE -Wl,-exported_symbols_list,${PROJECT_BINARY_DIR}/exported-names.txt)
  else()
    string(REPLACE ";" ";\n    " text "${names}")
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/exported-names.map
      CONTENT "COLOURMATCH_2 {\n  global:\n    ${text};\n  local:\n    *;\n};\n" @ONLY)
    # A host's own symbol of the same name must never replace ours. A host that closes the library leaves it loaded, as the main loop may still
    # have something of it to run.
    target_link_options(${target} PRIVATE
      -Wl,--version-script=${PROJECT_BINARY_DIR}/exported-names.map -Wl,-Bsymbolic -Wl,-z,now -Wl,-z,nodelete)
    if(NOT CM_SANITIZE)
      target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${PROJECT_BINARY_DIR}/exported-names.map)
  endif()
endfunction()
