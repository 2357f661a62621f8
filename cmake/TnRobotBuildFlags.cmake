# How everything of ours is compiled, as one target that each of ours links privately.

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

add_library(tnrobot_build_flags INTERFACE)

# Adds a flag where compiler and processor have it. The linker is told too: files that are
# optimised together become code only then.
function(tnrobot_protect flag)
  string(MAKE_C_IDENTIFIER "TNROBOT_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    target_compile_options(tnrobot_build_flags INTERFACE ${flag})
    target_link_options(tnrobot_build_flags INTERFACE ${flag})
  endif()
endfunction()

# Marks a shared library as fit for indirect-branch tracking and shadow stacks. The linker does it
# unasked when every object says so, but the C runtime's first and last object (crti.o, crtn.o) do
# not everywhere. All that they bring are the functions _init and _fini, without a landing pad;
# naming others, which do not exist, keeps the loader from calling them. Our own start-up and
# clean-up are in the init and fini arrays.
function(tnrobot_mark_shadow_stack target)
  if(NOT TNROBOT_HAS_fcf_protection_full)
    return()
  endif()
  check_linker_flag(CXX LINKER:-z,ibt,-z,shstk,-init=tnrobot_none,-fini=tnrobot_none TNROBOT_LINKER_MARKS_SHADOW_STACK)
  if(TNROBOT_LINKER_MARKS_SHADOW_STACK)
    target_link_options(${target} PRIVATE LINKER:-z,ibt,-z,shstk,-init=tnrobot_none,-fini=tnrobot_none)
  endif()
endfunction()

# Tests are compiled without optimisation: what they test is, and compiling them is most of the time
# of a build. A directory says set(TNROBOT_TEST_CODE ON) for its targets.
define_property(TARGET PROPERTY TNROBOT_TEST_CODE INITIALIZE_FROM_VARIABLE TNROBOT_TEST_CODE
  BRIEF_DOCS "Whether the target is a test")
set(test_code $<BOOL:$<TARGET_PROPERTY:TNROBOT_TEST_CODE>>)
target_compile_options(tnrobot_build_flags INTERFACE $<${test_code}:-O0>)

target_compile_options(tnrobot_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  # The library must really leave the process when its last handle is closed; a unique symbol
  # would keep it there.
  $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)

# What does nothing is tested all the same.
target_compile_definitions(tnrobot_build_flags INTERFACE TN_ROBOT_SILENCE_DEPRECATED)

if(TNROBOT_CHECKED)
  target_compile_definitions(tnrobot_build_flags INTERFACE TNROBOT_CHECKED)
endif()

if(TNROBOT_WARNINGS_AS_ERRORS)
  target_compile_options(tnrobot_build_flags INTERFACE -Werror)
endif()

if(TNROBOT_SANITIZE)
  target_compile_options(tnrobot_build_flags INTERFACE
    -fsanitize=${TNROBOT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tnrobot_build_flags INTERFACE -fsanitize=${TNROBOT_SANITIZE})
  # What counts is fuzz/ThreadCoverage.cpp, which CMake's own trials of the compiler do not have.
  if(TNROBOT_BUILD_FUZZERS AND TNROBOT_SANITIZE MATCHES "thread")
    target_compile_options(tnrobot_build_flags INTERFACE -fsanitize-coverage=edge,trace-pc,trace-cmp)
  endif()
elseif(TNROBOT_COVERAGE)
  target_compile_options(tnrobot_build_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tnrobot_build_flags INTERFACE --coverage)
else()
  tnrobot_protect(-fstack-protector-strong)
  tnrobot_protect(-fstack-clash-protection)
  # The compiler of one processor may accept, and ignore, the flag of the other. On arm64 the linker
  # marks a library as protected throughout when the C runtime's start-up code is, which is not so
  # everywhere; its own functions are protected in any case.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    tnrobot_protect(-fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    tnrobot_protect(-mbranch-protection=standard)
  endif()
  # The checks need optimisation. Debian's compilers may define a lower level themselves.
  set(optimised $<AND:$<CONFIG:Release,RelWithDebInfo,MinSizeRel>,$<NOT:${test_code}>>)
  target_compile_options(tnrobot_build_flags INTERFACE
    $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=3>)
  target_link_options(tnrobot_build_flags INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack)
endif()

find_package(Threads REQUIRED)
target_link_libraries(tnrobot_build_flags INTERFACE Threads::Threads)
