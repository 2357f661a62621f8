# Installs the headers, the shared library, gdb's printers, a CMake package and a pkg-config file. The
# last two can be moved with the install tree: they find it from their own place.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TnRobotKernel)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/TnRobotKernel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS TnRobotKernel EXPORT TnRobotKernelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/tools/gdb/tnrobot_gdb.py DESTINATION ${CMAKE_INSTALL_DATADIR}/TnRobotKernel/gdb)
install(EXPORT TnRobotKernelTargets NAMESPACE TnRobotKernel:: DESTINATION ${package_dir})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/TnRobotKernelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TnRobotKernelConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TnRobotKernelConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/TnRobotKernelConfig.cmake
  ${PROJECT_BINARY_DIR}/TnRobotKernelConfigVersion.cmake
  DESTINATION ${package_dir})

# The prefix of the pkg-config file is relative to the directory that the file lies in.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/TnRobotKernel.pc.in ${PROJECT_BINARY_DIR}/TnRobotKernel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/TnRobotKernel.pc DESTINATION ${pkgconfig_dir})
