# Writes an include file for help2man with the help of every verb that
# `corvane help` lists, so that the man page holds all of the tool's help.
# Run as: cmake -DTOOL=path/to/corvane -DOUTPUT=file -P ManPageVerbs.cmake
execute_process(COMMAND ${TOOL} help OUTPUT_VARIABLE overview RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "${TOOL} help failed")
endif()
string(REGEX MATCH "Verbs:\n(  [^\n]*\n)+" list "${overview}")
string(REGEX MATCHALL "\n  [a-z]+" verbs "${list}")
set(text "[VERBS]\n")
foreach(verb IN LISTS verbs)
  string(STRIP "${verb}" verb)
  execute_process(COMMAND ${TOOL} help ${verb} OUTPUT_VARIABLE help RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "${TOOL} help ${verb} failed")
  endif()
  # The exit codes are in the overview already.
  string(REGEX REPLACE "\nExit codes:.*" "" help "${help}")
  # Plain text for roff: backslashes escaped, no line taken for a request.
  string(REPLACE "\\" "\\e" help "${help}")
  string(REGEX REPLACE "\n([.'])" "\n\\\\&\\1" help "${help}")
  string(APPEND text ".SS \"corvane ${verb}\"\n.nf\n${help}.fi\n")
endforeach()
file(WRITE ${OUTPUT} "${text}")
