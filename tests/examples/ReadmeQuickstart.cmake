# Checks that the README's quick-start block is examples/quickstart.cpp, whole
# and unchanged, so that the code the README shows is the code the build
# compiles and the tests run.
# Usage: cmake -DSOURCE_DIR=<project> -P ReadmeQuickstart.cmake
file(READ ${SOURCE_DIR}/README.md readme)
file(READ ${SOURCE_DIR}/examples/quickstart.cpp program)
set(begin "<!-- begin examples/quickstart.cpp -->\n```cpp\n")
set(end "```\n<!-- end examples/quickstart.cpp -->")
string(FIND "${readme}" "${begin}" start)
string(FIND "${readme}" "${end}" stop)
if(start EQUAL -1 OR stop EQUAL -1)
  message(FATAL_ERROR "README.md has no block between \"${begin}\" and \"${end}\"")
endif()
string(LENGTH "${begin}" begin_length)
math(EXPR start "${start} + ${begin_length}")
math(EXPR length "${stop} - ${start}")
string(SUBSTRING "${readme}" ${start} ${length} block)
if(NOT block STREQUAL program)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/readme-quickstart.cpp "${block}")
  message(FATAL_ERROR "README.md's quick start differs from examples/quickstart.cpp "
                      "(the README's block is in ${CMAKE_CURRENT_BINARY_DIR}/readme-quickstart.cpp)")
endif()
