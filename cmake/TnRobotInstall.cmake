# Installs what is built, in components that become packages. The CMake package and the pkg-config
# file can be moved with the install tree: they find it from their own place.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TnRobotKernel)

# The library and what runs with it.

install(TARGETS TnRobotKernel EXPORT TnRobotKernelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)

if(TARGET TnRobotLog)
  install(TARGETS TnRobotLog LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT logger)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/logger/include/TnRobotLog
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()

if(TARGET tnrobot-inspect)
  install(TARGETS tnrobot-inspect RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/tnrobot-inspect.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/tnrobot-inspect
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()

if(TARGET tnrobot_python)
  install(TARGETS tnrobot_python LIBRARY DESTINATION ${TNROBOT_PYTHON_DIR}/tnrobotkernel COMPONENT python)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/tnrobotkernel DESTINATION ${TNROBOT_PYTHON_DIR}
    COMPONENT python FILES_MATCHING PATTERN *.py PATTERN *.pyi PATTERN py.typed PATTERN __pycache__ EXCLUDE)
endif()

# What programs are built with.

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/TnRobotKernel
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/tools/gdb/tnrobot_gdb.py
  DESTINATION ${CMAKE_INSTALL_DATADIR}/TnRobotKernel/gdb COMPONENT development)
install(EXPORT TnRobotKernelTargets NAMESPACE TnRobotKernel::
  DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/TnRobotKernelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TnRobotKernelConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TnRobotKernelConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/TnRobotKernelConfig.cmake
  ${PROJECT_BINARY_DIR}/TnRobotKernelConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# The prefix of the pkg-config file is relative to the directory that the file lies in.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/TnRobotKernel.pc.in ${PROJECT_BINARY_DIR}/TnRobotKernel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/TnRobotKernel.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
