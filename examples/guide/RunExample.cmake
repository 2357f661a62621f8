# Runs a program in a directory of its own and compares what it prints with a file:
#   cmake -D PROGRAM=... -D EXPECTED=... -D DIRECTORY=... [-D EMULATOR=...] -P RunExample.cmake

file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})
execute_process(COMMAND ${EMULATOR} ${PROGRAM} WORKING_DIRECTORY ${DIRECTORY} OUTPUT_VARIABLE printed RESULT_VARIABLE result)
file(REMOVE_RECURSE ${DIRECTORY})
if(NOT result EQUAL 0)
  message(FATAL_ERROR "ended with ${result} after:\n${printed}")
endif()
file(READ ${EXPECTED} expected)
if(NOT printed STREQUAL expected)
  message(FATAL_ERROR "printed:\n${printed}\nexpected:\n${expected}")
endif()
