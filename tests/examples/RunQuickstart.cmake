# Runs the quick-start program on a copy of examples/app.ini and checks what
# it reports and writes: the "modified" flag through the edit and the revert,
# the plain save in the library's layout, and the preserving save that
# differs from the original only in the edited value.
# Usage: cmake -DPROGRAM=<quickstart> -DSOURCE_DIR=<project> -DWORK_DIR=<scratch> -P RunQuickstart.cmake
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
configure_file(${SOURCE_DIR}/examples/app.ini ${WORK_DIR}/app.ini COPYONLY)
execute_process(COMMAND ${PROGRAM} ${WORK_DIR}/app.ini ${WORK_DIR}/plain.ini ${WORK_DIR}/preserved.ini
                RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "quickstart failed (${status}): ${errors}")
endif()

set(expected_output [=[loaded, modified: yes
committed, modified: no
set width = 1024
  modified: yes
revert
  modified: no
set width = 1024 again
  modified: yes
]=])
string(FIND "${output}" "${expected_output}" at)
if(NOT at EQUAL 0)
  message(FATAL_ERROR "quickstart reported:\n${output}\nexpected it to begin with:\n${expected_output}")
endif()

file(READ ${SOURCE_DIR}/examples/app.ini original)
string(REPLACE "width = 800\n" "width = 1024\n" expected_preserved "${original}")
file(READ ${WORK_DIR}/preserved.ini preserved)
if(NOT preserved STREQUAL expected_preserved OR preserved STREQUAL original)
  message(FATAL_ERROR "the preserving save wrote:\n${preserved}\nexpected:\n${expected_preserved}")
endif()
file(READ ${WORK_DIR}/plain.ini plain)
if(NOT plain MATCHES "\n\\[window\\]\nwidth=1024\nheight=600\n?$")
  message(FATAL_ERROR "the plain save wrote:\n${plain}")
endif()
file(READ ${WORK_DIR}/app.ini input)
if(NOT input STREQUAL original)
  message(FATAL_ERROR "quickstart changed its input file")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
