# What is installed; debian/ makes packages of it.

include(CMakePackageConfigHelpers)

# Collects, from the umbrella header and the C++ face down, every header of ours that a host's includes can reach.
function(cm_public_headers result)
  set(waiting include/ColourMatch/ColourMatch.h include/ColourMatch/Session.hpp)
  set(found "")
  while(waiting)
    list(POP_FRONT waiting header)
    if(NOT header IN_LIST found)
      list(APPEND found ${header})
      set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
      file(STRINGS ${PROJECT_SOURCE_DIR}/${header} lines REGEX "^#include \"")
      foreach(line IN LISTS lines)
        string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included ${line})
        if(included MATCHES "^ColourMatch/")
          string(PREPEND included include/)
        endif()
        list(APPEND waiting ${included})
      endforeach()
    endif()
  endwhile()
  set(${result} ${found} PARENT_SCOPE)
endfunction()

set(CM_HEADER_FOLDER ${CMAKE_INSTALL_INCLUDEDIR}/colourmatch-2)
cm_public_headers(headers)
foreach(header IN LISTS headers)
  cmake_path(GET header PARENT_PATH folder)
  string(REGEX REPLACE "^include/" "" folder ${folder})
  install(FILES ${header} DESTINATION ${CM_HEADER_FOLDER}/${folder} COMPONENT development)
endforeach()

install(TARGETS colourmatch EXPORT ColourMatchTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CM_HEADER_FOLDER})
install(FILES ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/colourmatch-2/MatrixCalRGB.icc DESTINATION ${CMAKE_INSTALL_LIBDIR}/colourmatch-2 COMPONENT library)
if(TARGET show-alert)
  install(TARGETS show-alert RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR}/colourmatch-2 COMPONENT library)
endif()
if(TARGET orlo)
  install(TARGETS orlo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)
  install(TARGETS orlo-images LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/colourmatch-2 COMPONENT command)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT command)
  install(FILES orlo/completion/orlo.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME orlo COMPONENT command)
  install(FILES orlo/completion/_orlo DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT command)
  install(FILES orlo/completion/orlo.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT command)
  install(FILES orlo/session/orlo-displays.service DESTINATION lib/systemd/user COMPONENT command)
  # Sessions look for it under /etc alone; a tree that is installed elsewhere keeps it to itself.
  install(CODE "
    set(folder \"\${CMAKE_INSTALL_PREFIX}/etc\")
    if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
      set(folder /etc)
    endif()
    file(INSTALL \"${PROJECT_SOURCE_DIR}/orlo/session/orlo-displays.desktop\" DESTINATION \"\${folder}/xdg/autostart\")" COMPONENT command)
endif()

set(CM_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/ColourMatch)
install(EXPORT ColourMatchTargets NAMESPACE ColourMatch:: DESTINATION ${CM_CMAKE_FOLDER} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ColourMatchConfig.cmake.in ${PROJECT_BINARY_DIR}/ColourMatchConfig.cmake
  INSTALL_DESTINATION ${CM_CMAKE_FOLDER})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ColourMatchConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ColourMatchConfig.cmake ${PROJECT_BINARY_DIR}/ColourMatchConfigVersion.cmake
  DESTINATION ${CM_CMAKE_FOLDER} COMPONENT development)

# The paths in the .pc file start at the file itself, so that an installed tree may be moved.
set(CM_PC_FOLDER ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH CM_PC_TO_PREFIX /prefix/${CM_PC_FOLDER} /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/colourmatch.pc.in ${PROJECT_BINARY_DIR}/colourmatch.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/colourmatch.pc DESTINATION ${CM_PC_FOLDER} COMPONENT development)
install(FILES examples/match_colour.c DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)
