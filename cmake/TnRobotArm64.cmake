# Builds for arm64 on another processor, with Debian's cross compiler and the packages that
# scripts/lib/fetch_sysroot.sh has unpacked. Programs of the tests run in qemu's user emulation.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(TNROBOT_DEBIAN_ARCHITECTURE arm64)
get_filename_component(project_dir ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
set(CMAKE_SYSROOT ${project_dir}/build/arm64-sysroot)

# Programs that the build runs are this machine's; libraries, headers and packages are the sysroot's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The processor has all that arm64 knows, signed return addresses among it, which the library is built
# with. Signing them as real processors do would cost more time than everything else together; the
# emulator's own way of doing it is as good.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -cpu max,pauth-impdef=on -L ${CMAKE_SYSROOT} -E TNROBOT_TEST_PATIENCE=2)
