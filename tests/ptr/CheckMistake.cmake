# cmake -D COMPILER=... -D INCLUDES=... -D SOURCE=... [-D MISTAKE=... -D EXPECTED=...] -P CheckMistake.cmake
# Compiles the source. Without a mistake it must succeed; with one it must fail with a message that
# matches the expected expression.

set(command ${COMPILER} -std=c++17 -fsyntax-only -I${INCLUDES})
if(MISTAKE)
  list(APPEND command -DMISTAKE_${MISTAKE})
endif()
execute_process(COMMAND ${command} ${SOURCE}
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)

if(NOT MISTAKE)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "the source without a mistake does not compile:\n${output}")
  endif()
elseif(result EQUAL 0)
  message(FATAL_ERROR "${MISTAKE} compiles")
elseif(NOT output MATCHES "error: [^\n]*(${EXPECTED})")
  message(FATAL_ERROR "${MISTAKE} fails, but not with \"${EXPECTED}\":\n${output}")
endif()
