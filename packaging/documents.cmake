# What Debian wants of a package besides its files: in every component that CPack has staged, the manual
# pages compressed, a copyright file, a changelog, and why lintian is to overlook something. The same
# sources give the same bytes, as packages of several architectures must that are installed together.

set(for_all OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

function(compress file)
  execute_process(COMMAND gzip -9n "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# What one of Debian's packages tells in a file of its own.
function(read_document package root file result)
  set(path "${root}/usr/share/doc/${package}/${file}")
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "${path} is missing; it tells about ${package}, which is linked in")
  endif()
  execute_process(COMMAND gzip -cdf "${path}" OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# held_terms(packages... result): their copyright files, as text of a field. Always the machine's own, which
# are the same for both architectures.
function(held_terms packages result)
  set(terms "")
  foreach(package ${packages})
    read_document(${package} "" copyright text)
    string(APPEND terms "\n\nFrom ${package}:\n\n${text}")
  endforeach()
  string(REGEX REPLACE "[ \t\n]+$" "" terms "${terms}")
  string(REGEX REPLACE "\n" "\n " terms "${terms}")
  # Twice, since blank lines in a row share their line breaks.
  string(REGEX REPLACE "\n[ \t]+\n" "\n .\n" terms "${terms}")
  string(REGEX REPLACE "\n[ \t]+\n" "\n .\n" terms "${terms}")
  set(${result} "${terms}" PARENT_SCOPE)
endfunction()

# The sources of what is linked in: "openssl (= 3.0.1-1), …".
function(held_sources packages result)
  set(sources "")
  foreach(package ${packages})
    read_document(${package} "${CPACK_QUOREL_SYSROOT}" changelog.Debian.gz text)
    string(REGEX REPLACE "^([^ ]+) \\(([^)]+)\\).*" "\\1 (= \\2)" source "${text}")
    list(APPEND sources "${source}")
  endforeach()
  list(JOIN sources ", " sources)
  set(${result} "${sources}" PARENT_SCOPE)
endfunction()

file(READ "${CPACK_QUOREL_SOURCE}/LICENSE" license)
string(REGEX MATCH "Copyright[^\n]*" holder "${license}")
string(REGEX REPLACE "^Copyright \\(c\\) " "" holder "${holder}")
string(REGEX REPLACE "^.*\n(Permission is .*)$" "\\1" terms "${license}")
string(STRIP "${terms}" terms)
string(REGEX REPLACE "\n\n" "\n.\n" terms "${terms}")
string(REGEX REPLACE "\n" "\n " terms "${terms}")
set(format "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: quorel
")
set(own_terms "Files: *
Copyright: ${holder}
License: Expat

License: Expat
 ${terms}
")
set(of_compiler "Comment:
 Its programs and libraries hold code of the compiler's run-time libraries libstdc++ and libgcc, of version
 3 of the GNU General Public License with the GCC Runtime Library Exception, which lets that code be
 passed on with them: /usr/share/common-licenses/GPL-3, /usr/share/doc/gcc-12-base/copyright.
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
  set(held "${CPACK_QUOREL_${upper}_HOLDS}")
  set(comment "")
  if(NOT component STREQUAL development)
    set(comment "${of_compiler}")
  endif()
  if(held)
    held_terms("${held}" comment_of_held)
    string(APPEND comment " .\n They also hold what these packages of Debian have, each under its own terms:"
      "${comment_of_held}\n")
    held_sources("${held}" sources)
    # CPack has no name for this field.
    string(APPEND CPACK_DEBIAN_${upper}_PACKAGE_SECTION "\nStatic-Built-Using: ${sources}")
  endif()
  file(WRITE "${documents}/copyright" "${format}${comment}\n${own_terms}")
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
