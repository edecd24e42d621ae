# What Debian wants of a package besides its files: in every component that CPack has staged, the manual
# pages compressed, a copyright file, a changelog, and why lintian is to overlook something. The same
# sources give the same bytes, as packages of several architectures must that are installed together.

set(for_all OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

function(compress file)
  execute_process(COMMAND gzip -9n "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(READ "${CPACK_QUOREL_SOURCE}/LICENSE" license)
string(REGEX MATCH "Copyright[^\n]*" holder "${license}")
string(REGEX REPLACE "^Copyright \\(c\\) " "" holder "${holder}")
string(REGEX REPLACE "^.*\n(Permission is .*)$" "\\1" terms "${license}")
string(STRIP "${terms}" terms)
string(REGEX REPLACE "\n\n" "\n.\n" terms "${terms}")
string(REGEX REPLACE "\n" "\n " terms "${terms}")
set(copyright "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: quorel

Files: *
Copyright: ${holder}
License: Expat

License: Expat
 ${terms}
")
# The day of the newest change to the sources, which without their history is that of their newest version.
execute_process(COMMAND git -c "safe.directory=${CPACK_QUOREL_SOURCE}" log -1 --format=%cD
  WORKING_DIRECTORY "${CPACK_QUOREL_SOURCE}" OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE
  RESULT_VARIABLE failed ERROR_QUIET)
if(failed)
  file(TIMESTAMP "${CPACK_QUOREL_SOURCE}/CHANGELOG.md" date "%a, %d %b %Y %H:%M:%S +0000" UTC)
endif()
set(changelog "quorel (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) stable; urgency=medium

  * See changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(root "${CPACK_TEMPORARY_DIRECTORY}/${component}")
  set(tree "${root}/usr")
  set(name "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  set(documents "${tree}/share/doc/${name}")
  file(WRITE "${documents}/copyright" "${copyright}")
  file(WRITE "${documents}/changelog.Debian" "${changelog}")
  configure_file("${CPACK_QUOREL_SOURCE}/CHANGELOG.md" "${documents}/changelog" COPYONLY
    FILE_PERMISSIONS ${for_all})
  set(overrides "${CPACK_QUOREL_SOURCE}/packaging/overrides/${name}")
  if(EXISTS "${overrides}")
    configure_file("${overrides}" "${tree}/share/lintian/overrides/${name}" COPYONLY
      FILE_PERMISSIONS ${for_all})
  endif()
  set(secrets "${CPACK_QUOREL_${upper}_SECRETS}")
  if(secrets)
    file(MAKE_DIRECTORY "${root}/${secrets}")
    file(CHMOD "${root}/${secrets}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endif()
  # Units name the programs by the folder that a build installs them into.
  file(GLOB units "${tree}/lib/systemd/system/*")
  foreach(unit ${units})
    file(READ "${unit}" text)
    string(REPLACE "${CPACK_QUOREL_BINDIR}/" "/usr/bin/" text "${text}")
    file(WRITE "${unit}" "${text}")
  endforeach()
  file(GLOB pages "${tree}/share/man/*/*.[1-8]")
  foreach(file ${pages} "${documents}/changelog.Debian" "${documents}/changelog")
    compress("${file}")
  endforeach()
endforeach()
