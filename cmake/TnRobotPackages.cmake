# Debian packages, one for each component: cpack -G DEB in a build of the "packages" preset, or
# scripts/package.sh, which also checks them.

set(packaging_dir ${PROJECT_SOURCE_DIR}/packaging)
set(maintainer "libTnRobotKernel developers <maintainers@tnrobotkernel.invalid>")

set(library_package libtnrobotkernel${PROJECT_VERSION_MAJOR})
set(development_package libtnrobotkernel-dev)
set(logger_package libtnrobotlog)
set(tools_package tnrobot-tools)
set(documentation_package libtnrobotkernel-doc)
set(python_package python3-tnrobotkernel)

set(components library development documentation)
if(TARGET TnRobotLog)
  list(APPEND components logger)
endif()
if(TARGET tnrobot-inspect)
  list(APPEND components tools)
endif()
if(TARGET tnrobot_python)
  list(APPEND components python)
endif()

# The change log gives the packages' revision.
file(STRINGS ${packaging_dir}/changelog latest LIMIT_COUNT 1)
if(NOT latest MATCHES "\\(${PROJECT_VERSION}-([0-9.]+)\\)")
  message(FATAL_ERROR "packaging/changelog does not begin with version ${PROJECT_VERSION}")
endif()
set(revision ${CMAKE_MATCH_1})

# Files that only packages have.

# Compresses an installed file in its place.
function(tnrobot_compress component file)
  install(CODE "execute_process(
      COMMAND gzip -9nf \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${file}\" COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT ${component})
endfunction()

foreach(component IN LISTS components)
  set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package})
  install(FILES ${packaging_dir}/copyright DESTINATION ${doc_dir} COMPONENT ${component})
  install(FILES ${packaging_dir}/changelog RENAME changelog.Debian DESTINATION ${doc_dir} COMPONENT ${component})
  install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md RENAME changelog DESTINATION ${doc_dir} COMPONENT ${component})
  tnrobot_compress(${component} ${doc_dir}/changelog.Debian)
  tnrobot_compress(${component} ${doc_dir}/changelog)
  if(EXISTS ${packaging_dir}/${${component}_package}.lintian-overrides)
    install(FILES ${packaging_dir}/${${component}_package}.lintian-overrides RENAME ${${component}_package}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  endif()
endforeach()

if(TARGET tnrobot-inspect)
  tnrobot_compress(tools ${CMAKE_INSTALL_MANDIR}/man1/tnrobot-inspect.1)
endif()

# gdb looks for a library's printers under the library's own path.
install(FILES ${PROJECT_SOURCE_DIR}/tools/gdb/tnrobot_gdb.py
  DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
  RENAME libTnRobotKernel.so.${PROJECT_VERSION}-gdb.py COMPONENT development)

# As in the source tree, so that links between the documents hold. The site is there after
# scripts/docs.sh.
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/${documentation_package})
install(FILES README.md CONTRIBUTING.md CHANGELOG.md DESTINATION ${doc_dir} COMPONENT documentation)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${doc_dir} COMPONENT documentation
  FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN *.png)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${doc_dir} COMPONENT documentation
  PATTERN __pycache__ EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/html
  DESTINATION ${doc_dir} COMPONENT documentation OPTIONAL)

# What the packages say of themselves.

set(library_section libs)
set(library_summary "foundation library for robot and machine-vision applications
Reference-counted objects behind abstract interfaces: recycling pools of
memory blocks, typed values and groups of them, an archive for object graphs,
pixel surfaces with BMP and JPEG files, events, threads and pooled tasks.")
set(development_section libdevel)
set(development_summary "development files of libTnRobotKernel
Headers, a CMake package, a pkg-config file and printers for gdb, for programs
that use the foundation library for robot and machine-vision applications.")
set(logger_section libs)
set(logger_summary "logger library for programs that use libTnRobotKernel
Writes the log lines of a program to a rotating file and to the standard error
output. The program opens it at run time; nothing is linked with it.")
set(tools_section utils)
set(tools_summary "inspector for files saved by libTnRobotKernel
The program tnrobot-inspect shows, compares, checks and converts saved value
groups, archives and pictures, and says where a damaged file is damaged.")
set(documentation_section doc)
set(documentation_summary "documentation of libTnRobotKernel
Guides, reference pages and example programs for the foundation library for
robot and machine-vision applications.")

set(python_section python)
set(python_summary "foundation library for robot and machine-vision applications, from Python
The package tnrobotkernel: value groups as dictionaries, pictures as arrays of
NumPy without a copy, pools, events, and Python functions on pooled tasks, in
files and memory that C++ programs of the library share.")

set(library_suggests ${logger_package})
set(development_suggests "${documentation_package}, pkg-config")
set(development_depends "${library_package} (= ${PROJECT_VERSION}-${revision})")
set(logger_enhances ${library_package})
# dpkg-shlibdeps finds what packages of this system the programs need, but knows nothing of ours.
set(tools_depends "${library_package} (>= ${PROJECT_VERSION})")

# The module is built for one version of Python.
set(python_depends "${library_package} (= ${PROJECT_VERSION}-${revision}), python3-numpy, python3 (>= 3.11), python3 (<< 3.12)")
set(python_suggests "${documentation_package}, python3-matplotlib, python3-opencv")
# Python code is compiled when it is installed, and what came of that goes before it is removed.
set(python_control ${packaging_dir}/python/postinst ${packaging_dir}/python/prerm)

# How programs of other packages come to depend on the library, and the loader to know of it.
file(CONFIGURE OUTPUT packages/shlibs
  CONTENT "libTnRobotKernel ${PROJECT_VERSION_MAJOR} ${library_package} (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT packages/triggers CONTENT "activate-noawait ldconfig\n")
set(library_control ${CMAKE_CURRENT_BINARY_DIR}/packages/shlibs ${CMAKE_CURRENT_BINARY_DIR}/packages/triggers)

foreach(component IN LISTS components)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${${component}_package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${${component}_section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${${component}_summary}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${${component}_depends}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_SUGGESTS "${${component}_suggests}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_ENHANCES "${${component}_enhances}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${${component}_control}")
endforeach()
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_NAME libtnrobotkernel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${maintainer}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# What the compiler knows of lines and types goes into packages of its own, NAME-dbgsym, and is stripped from
# the others.
set(CPACK_STRIP_FILES OFF)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${revision})
set(CPACK_DEBIAN_PACKAGE_SOURCE libtnrobotkernel)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
if(CMAKE_CROSSCOMPILING)
  # The packages that the programs need are those of the sysroot, of another architecture.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${TNROBOT_DEBIAN_ARCHITECTURE})
  set(shlibdeps ${CMAKE_CURRENT_BINARY_DIR}/packages/shlibdeps)
  file(CONFIGURE OUTPUT ${shlibdeps} @ONLY CONTENT "#!/bin/sh
DEB_HOST_ARCH=@TNROBOT_DEBIAN_ARCHITECTURE@ exec dpkg-shlibdeps --admindir=@CMAKE_SYSROOT@/var/lib/dpkg \\
  -l@CMAKE_SYSROOT@/lib/@CMAKE_LIBRARY_ARCHITECTURE@ -l@CMAKE_SYSROOT@/usr/lib/@CMAKE_LIBRARY_ARCHITECTURE@ \"$@\"
")
  file(CHMOD ${shlibdeps} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  file(CONFIGURE OUTPUT packages/cross.cmake @ONLY CONTENT "set(SHLIBDEPS_EXECUTABLE \"@shlibdeps@\")
set(CPACK_OBJCOPY_EXECUTABLE \"@CMAKE_OBJCOPY@\")
")
  set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/packages/cross.cmake)
endif()
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/TnRobotFinishPackages.cmake)
include(CPack)
