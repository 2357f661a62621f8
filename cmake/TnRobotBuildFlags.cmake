# How everything of ours is compiled, as one target that each of ours links privately.

add_library(tnrobot_build_flags INTERFACE)

target_compile_options(tnrobot_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  # The library must really leave the process when its last handle is closed; a unique symbol
  # would keep it there.
  $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)

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
elseif(TNROBOT_COVERAGE)
  target_compile_options(tnrobot_build_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tnrobot_build_flags INTERFACE --coverage)
else()
  target_compile_options(tnrobot_build_flags INTERFACE
    -fstack-protector-strong
    # Debian's compilers may define a lower level themselves. The checks need optimisation.
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
  target_link_options(tnrobot_build_flags INTERFACE LINKER:-z,relro,-z,now)
endif()

find_package(Threads REQUIRED)
target_link_libraries(tnrobot_build_flags INTERFACE Threads::Threads)
