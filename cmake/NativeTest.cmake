# add_native_test(NAME SOURCES files... LIBRARIES targets...): a GoogleTest program whose every test
# is a test of its own for CTest.

find_package(GTest REQUIRED)
include(GoogleTest)

# Tests are built to be built quickly: what they test is optimised, they need not be, and a line
# number is all that a report says of them.
set(test_code_options -O0 -g1)

# GoogleTest's headers take longer than most tests that include them, and are compiled once for all.
add_library(gtest_headers OBJECT "${CMAKE_CURRENT_LIST_DIR}/gtest_headers.cc")
# As programs are compiled; a library would be with -fPIC.
set_target_properties(gtest_headers PROPERTIES POSITION_INDEPENDENT_CODE OFF)
target_compile_options(gtest_headers PRIVATE ${test_code_options} -fPIE)
target_link_libraries(gtest_headers PRIVATE GTest::gmock)
target_precompile_headers(gtest_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)

function(add_native_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main)
  target_compile_options(${name} PRIVATE ${test_code_options})
  target_precompile_headers(${name} REUSE_FROM gtest_headers)
  # Discovery runs the program; before the tests rather than while building, which a sanitizer's
  # runtime would slow down.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST)
endfunction()
