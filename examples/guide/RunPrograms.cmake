# Runs programs one after the other in one directory and compares what all of them print with a file, in which
# each is named in front of what it printed:
#   cmake -D "PROGRAMS=PROGRAM[|ARGUMENT]..." -D EXPECTED=... -D DIRECTORY=... [-D EMULATOR=...] -P RunPrograms.cmake
# PROGRAMS is a list; programs and arguments are paths, of which the file shows the names alone.

file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})
set(all "")
foreach(command IN LISTS PROGRAMS)
  string(REPLACE "|" ";" command "${command}")
  set(shown "$")
  foreach(word IN LISTS command)
    cmake_path(GET word FILENAME name)
    string(APPEND shown " ${name}")
  endforeach()
  execute_process(COMMAND ${EMULATOR} ${command} WORKING_DIRECTORY ${DIRECTORY} OUTPUT_VARIABLE printed RESULT_VARIABLE result)
  string(APPEND all "${shown}\n${printed}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "ended with ${result} after:\n${all}")
  endif()
endforeach()
file(REMOVE_RECURSE ${DIRECTORY})
file(READ ${EXPECTED} expected)
if(NOT all STREQUAL expected)
  message(FATAL_ERROR "printed:\n${all}\nexpected:\n${expected}")
endif()
