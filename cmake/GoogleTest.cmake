# GoogleTest for the test programs.
#
# Native Linux builds use the installed package (libgtest-dev). A Windows build, cross-compiled
# or made with Visual Studio, needs GoogleTest built by its own compiler: it is built here from
# source (Debian's /usr/src/googletest, or the checkout that OSTREL_GOOGLETEST_SOURCE_DIR names),
# and every later find_package(GTest) of the project yields that build, with the targets
# GTest::gtest, GTest::gtest_main, GTest::gmock and GTest::gmock_main.
include_guard(GLOBAL)

if(NOT (CMAKE_CROSSCOMPILING OR WIN32))
  return()
endif()

# A cross build lists the tests of each program when CTest starts rather than right after linking
# it: building then never runs Wine, and the listing runs once the test run has Wine started.
if(CMAKE_CROSSCOMPILING)
  set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
endif()

set(OSTREL_GOOGLETEST_SOURCE_DIR "/usr/src/googletest" CACHE PATH
    "GoogleTest sources to build with the project's compiler (Windows builds)")
if(NOT EXISTS "${OSTREL_GOOGLETEST_SOURCE_DIR}/CMakeLists.txt")
  # Visual Studio users may instead provide a GoogleTest package (vcpkg), found as usual.
  message(STATUS "No GoogleTest sources in ${OSTREL_GOOGLETEST_SOURCE_DIR}: "
                 "find_package(GTest) looks for an installed package")
  return()
endif()

set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
# Visual Studio: the DLL C runtime, which every other target of the project uses.
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
# Only what a test program links gets built (gmock is there for those who want it); SYSTEM keeps
# GoogleTest's headers out of our warnings-as-errors.
add_subdirectory("${OSTREL_GOOGLETEST_SOURCE_DIR}" "${CMAKE_BINARY_DIR}/_deps/googletest"
                 EXCLUDE_FROM_ALL SYSTEM)

foreach(library gtest gtest_main gmock gmock_main)
  if(TARGET ${library} AND NOT TARGET GTest::${library})
    add_library(GTest::${library} ALIAS ${library})
  endif()
endforeach()

# find_package(GTest) looks in this folder before anything else, Find modules included
# (CMake 3.24): an empty package file there answers it with the targets above.
file(WRITE "${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/gtest-config.cmake"
     "# GoogleTest is built by this project: cmake/GoogleTest.cmake\n")
file(WRITE "${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/gtest-config-version.cmake"
     "set(PACKAGE_VERSION \"${GOOGLETEST_VERSION}\")\n"
     "set(PACKAGE_VERSION_COMPATIBLE TRUE)\n")
