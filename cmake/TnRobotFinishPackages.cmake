# Run by cpack when the packages are written, for what it cannot be told.
#
# It adds scripts that call ldconfig to every package with a library; Debian leaves that to a trigger, which
# runs once after all packages. Its packages of debug symbols are of a type that Debian does not have, list
# their files under the path that they were made in, and have no documents; Debian's share those of the package
# that they belong to. Their ending is changed by scripts/package.sh: cpack goes on using their names.

# Leaves in CONTENT what a package is made of.
function(unpack package content)
  file(REMOVE_RECURSE ${content})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${content} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(pack content package)
  execute_process(COMMAND dpkg-deb --root-owner-group --build ${content} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(leave_ldconfig_to_trigger package)
  set(content ${CPACK_TEMPORARY_DIRECTORY}/finish)
  unpack(${package} ${content})
  set(script "")
  if(EXISTS ${content}/DEBIAN/postinst)
    file(STRINGS ${content}/DEBIAN/postinst script REGEX ldconfig)
  endif()
  if(script)
    file(REMOVE ${content}/DEBIAN/postinst ${content}/DEBIAN/postrm)
    pack(${content} ${package})
  endif()
  file(REMOVE_RECURSE ${content})
endfunction()

function(finish_symbols package)
  set(content ${CPACK_TEMPORARY_DIRECTORY}/finish)
  unpack(${package} ${content})

  file(READ ${content}/DEBIAN/control control)
  string(REGEX REPLACE "Package-Type: ddeb\n" "" control "${control}")
  file(WRITE ${content}/DEBIAN/control "${control}")

  string(REGEX MATCH "Package: ([^\n]+)-dbgsym\n" found "${control}")
  file(MAKE_DIRECTORY ${content}/usr/share/doc)
  file(CREATE_LINK ${CMAKE_MATCH_1} ${content}/usr/share/doc/${CMAKE_MATCH_1}-dbgsym SYMBOLIC)

  set(sums "")
  file(GLOB_RECURSE files RELATIVE ${content} ${content}/usr/lib/debug/*.debug)
  foreach(each IN LISTS files)
    file(CHMOD ${content}/${each} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    file(MD5 ${content}/${each} sum)
    string(APPEND sums "${sum}  ${each}\n")
  endforeach()
  file(WRITE ${content}/DEBIAN/md5sums "${sums}")

  pack(${content} ${package})
  file(REMOVE_RECURSE ${content})
endfunction()

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(package MATCHES "\\.ddeb$")
    finish_symbols(${package})
  else()
    leave_ldconfig_to_trigger(${package})
  endif()
endforeach()
