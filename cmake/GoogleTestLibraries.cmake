# The targets GTest::gtest, GTest::gmock and GTest::gtest_main: as installed, or for another processor from the sources that Debian's googletest holds.

if(CMAKE_CROSSCOMPILING)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
else()
  find_package(GTest REQUIRED)
endif()
