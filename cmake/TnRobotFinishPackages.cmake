# Run by cpack when the packages are written. It adds scripts that call ldconfig to every package
# with a library and cannot be told otherwise; Debian leaves that to a trigger, which runs once
# after all packages.

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(content ${CPACK_TEMPORARY_DIRECTORY}/finish)
  file(REMOVE_RECURSE ${content})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${content} COMMAND_ERROR_IS_FATAL ANY)
  set(script "")
  if(EXISTS ${content}/DEBIAN/postinst)
    file(STRINGS ${content}/DEBIAN/postinst script REGEX ldconfig)
  endif()
  if(script)
    file(REMOVE ${content}/DEBIAN/postinst ${content}/DEBIAN/postrm)
    execute_process(COMMAND dpkg-deb --root-owner-group --build ${content} ${package}
      OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(REMOVE_RECURSE ${content})
endforeach()
