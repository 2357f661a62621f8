# Writes the ctest entries of a test program, one for each of its suites, into LIST. Run by
# tnrobot_discover_suites with PROGRAM, PREFIX, LIST and EMULATOR (a list, may be empty).

execute_process(
  COMMAND ${EMULATOR} ${PROGRAM} --gtest_list_tests --gtest_output=json:${LIST}.json
  OUTPUT_QUIET ERROR_VARIABLE errors RESULT_VARIABLE result TIMEOUT 120)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} cannot list its tests: ${result}\n${errors}")
endif()
file(READ ${LIST}.json listed)
file(REMOVE ${LIST}.json)

# Of each suite only its name, the number of its cases and the file of the first are wanted. They are cut
# out: parsing the whole text once for each of them would take seconds. Brackets would join the
# elements of a CMake list, and slashes come escaped.
string(REPLACE "[" "" listed "${listed}")
string(REPLACE "]" "" listed "${listed}")
string(REPLACE "\\/" "/" listed "${listed}")
set(pattern "\"name\": \"([^\"]*)\",[ \n]*\"tests\": ([0-9]+),[ \n]*\"testsuite\": [^}]*\"file\": \"([^\"]*)/[^/\"]+\"")
string(REGEX MATCHALL "${pattern}" suites "${listed}")
set(entries "")
foreach(suite IN LISTS suites)
  string(REGEX MATCH "${pattern}" matched "${suite}")
  set(name "${CMAKE_MATCH_1}")
  set(cases "${CMAKE_MATCH_2}")
  get_filename_component(directory "${CMAKE_MATCH_3}" NAME)
  # Many cases first: one that runs alone at the end keeps the other cores waiting.
  string(APPEND entries
    "add_test([==[${PREFIX}${name}]==] ${EMULATOR} [==[${PROGRAM}]==] --gtest_brief=1 [==[--gtest_filter=${name}.*]==])\n"
    "set_tests_properties([==[${PREFIX}${name}]==] PROPERTIES TIMEOUT 600 COST ${cases} LABELS ${directory})\n")
endforeach()
if(entries STREQUAL "")
  message(FATAL_ERROR "${PROGRAM} lists no tests")
endif()
file(WRITE ${LIST} "${entries}")
