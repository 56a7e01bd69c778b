# add_native_test(NAME SOURCES files... LIBRARIES targets...): a GoogleTest program whose every test
# is a test of its own for CTest.

find_package(GTest REQUIRED)
include(GoogleTest)

function(add_native_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main)
  # Discovery runs the program; before the tests rather than while building, which a sanitizer's
  # runtime would slow down.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST)
endfunction()
