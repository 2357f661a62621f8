# tnrobot_discover_suites(TARGET PREFIX): one ctest entry for each suite of a test program, named
# PREFIX and the suite, labelled with the directory of its source (values, image, ...), which
# scripts/test.sh --only asks for. A process for each suite instead of one for each case: most cases
# take a millisecond, and starting a sanitized program a hundred times that.
#
# The list is made after each link. What ctest shows of a suite are its failed cases alone.

function(tnrobot_discover_suites target prefix)
  set(list ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -D "PROGRAM=$<TARGET_FILE:${target}>" -D PREFIX=${prefix} -D LIST=${list}
      -D "EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}" -P ${PROJECT_SOURCE_DIR}/cmake/ListTestSuites.cmake
    BYPRODUCTS ${list}
    COMMENT ""
    VERBATIM)
  # Until the program is built there is nothing to run; that is a failure, not an empty suite.
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${target}_include.cmake @ONLY CONTENT [[
if(EXISTS "@list@")
  include("@list@")
else()
  add_test(@target@_NOT_BUILT @target@_NOT_BUILT)
endif()
]])
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/${target}_include.cmake)
endfunction()
