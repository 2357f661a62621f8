# cmake -D GDB=... -D PRINTERS=... -D COMMANDS=... -D PROGRAM=... -D EXPECTED=... -P CheckPrinters.cmake
# Runs the commands and compares what gdb printed with the expected lines, addresses left out.

# The two files that gdb may load by itself are those of the compiler's library.
execute_process(
  COMMAND ${GDB} -nx -batch -iex "set auto-load safe-path /usr" -iex "set debuginfod enabled off"
    -iex "source ${PRINTERS}" -x ${COMMANDS} ${PROGRAM}
  OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(errors MATCHES "ptrace|Cannot create process|personality")
  message(FATAL_ERROR "not permitted here: ${errors}")
endif()
if(errors MATCHES "Python Exception|Traceback")
  message(FATAL_ERROR "a printer failed:\n${errors}")
endif()

string(REGEX MATCHALL "\n\\$[0-9]+ = [^\n]*" lines "${output}")
string(REGEX REPLACE "0x[0-9a-f]+" "ADDRESS" lines "${lines}")
string(REGEX REPLACE ";?\n" "\n" printed "${lines}")
string(STRIP "${printed}" printed)
file(READ ${EXPECTED} expected)
string(STRIP "${expected}" expected)
if(NOT printed STREQUAL expected)
  message(FATAL_ERROR "expected:\n${expected}\nprinted:\n${printed}\ngdb said:\n${output}\n${errors}")
endif()
