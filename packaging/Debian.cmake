# Debian packages, made by tools/package: one for each component. Those of the library are there for both
# word sizes, and can be installed together.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorel)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_PACKAGE_CONTACT "The Quorel maintainers <quorel@example.org>")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/documents.cmake")
set(CPACK_QUOREL_SOURCE "${PROJECT_SOURCE_DIR}")
set(CPACK_QUOREL_BINDIR "${CMAKE_INSTALL_FULL_BINDIR}")
set(CPACK_QUOREL_SYSROOT "${QUOREL_SYSROOT}")
if(QUOREL_BITS EQUAL 32)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
else()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
# What packages of libraries need besides; tools/package checks it. dpkg-shlibdeps knows the libraries of
# the machine's own architecture only, and what it has looked at CPack gives scripts that call ldconfig,
# which is the trigger's to do.
set(c_library "libc6 (>= 2.36)")

set(CPACK_COMPONENTS_ALL "")
set(this_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

# package(component [LIBRARIES] NAME name SECTION section SUMMARY text DEPENDS text [MULTIARCH kind] TEXT text
#         [HOLDS package...] [SCRIPTS file...] [SECRETS folder]):
# LIBRARIES for one that puts some where the dynamic linker looks; HOLDS names the packages of Debian whose
# archives are linked in; SCRIPTS run when it is installed or removed; SECRETS is for root alone.
macro(package component)
  cmake_parse_arguments(arg "LIBRARIES" "NAME;SECTION;SUMMARY;DEPENDS;MULTIARCH;TEXT;SECRETS" "HOLDS;SCRIPTS"
    ${ARGN})
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${arg_NAME})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${arg_SECTION}")
  if(arg_MULTIARCH)
    # CPack has no name for this field.
    string(APPEND CPACK_DEBIAN_${upper}_PACKAGE_SECTION "\nMulti-Arch: ${arg_MULTIARCH}")
  endif()
  if(arg_LIBRARIES)
    list(APPEND arg_SCRIPTS triggers)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS OFF)
  endif()
  list(TRANSFORM arg_SCRIPTS PREPEND "${CMAKE_CURRENT_LIST_DIR}/"
    OUTPUT_VARIABLE CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA)
  set(CPACK_QUOREL_${upper}_HOLDS "${arg_HOLDS}")
  set(CPACK_QUOREL_${upper}_SECRETS "${arg_SECRETS}")
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${arg_SUMMARY}\n${arg_TEXT}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${arg_DEPENDS}")
endmacro()

package(library LIBRARIES NAME libquorel SECTION libs MULTIARCH same DEPENDS "${c_library}"
  HOLDS libssl-dev
  SUMMARY "stored procedures for files, text, commands and mail"
  TEXT "A library of external stored procedures that a database server loads into its
own process: SQL then reads and writes files, formats and scans strings, runs
commands and sends mail, also over TLS.
.
This package has the library, its providers of TLS, its message texts, and the
worker that runs it in a process of its own.")

package(development NAME libquorel-dev SECTION libdevel MULTIARCH same
  DEPENDS "libquorel ${this_version}, python3:any"
  SUMMARY "stored procedures for files, text, commands and mail (development)"
  TEXT "Headers of the call frame and of the provider interface with its kit, a CMake
package, a pkg-config file, examples, and the compiler of message texts.")

if(QUOREL_BITS EQUAL 64)
  package(hosts NAME quorel SECTION database DEPENDS "libquorel ${this_version}"
    HOLDS libsqlite3-dev libedit-dev libbsd-dev libncurses-dev
    SUMMARY "SQL shell and command line for the quorel procedures"
    TEXT "Calls the procedures of libquorel where there is no database server: quorelsql
is an SQL shell over SQLite, xpcall is for scripts.")
  package(sqlite LIBRARIES NAME quorel-sqlite3 SECTION database
    DEPENDS "libquorel ${this_version}, ${c_library}"
    SUMMARY "quorel procedures as an extension for SQLite"
    TEXT "Gives sqlite3, or any other program that loads extensions into SQLite, the
procedures of libquorel as functions: SELECT xp_sendmail(...).")
  if(TARGET quorel-outbox)
    package(outbox NAME quorel-outbox SECTION mail DEPENDS "libquorel ${this_version}"
      HOLDS libsqlite3-dev SCRIPTS outbox/postinst outbox/prerm outbox/postrm SECRETS etc/quorel
      SUMMARY "sends the mail that waits in a database"
      TEXT "A daemon over an outbox in SQLite or PostgreSQL: a mail that was queued by an
INSERT goes out after the commit, is tried again while the mail server is away,
and the tables say what became of it.")
  endif()
  if(TARGET quorel_postgres)
    get_target_property(postgres quorel_postgres POSTGRES_VERSION)
    package(postgresql NAME postgresql-${postgres}-quorel SECTION database
      DEPENDS "libquorel ${this_version}, postgresql-${postgres}"
      SUMMARY "quorel procedures as an extension for PostgreSQL ${postgres}"
      TEXT "CREATE EXTENSION quorel gives a database the procedures of libquorel as
functions, which the server's roles may or may not call. They run in a worker,
so that a statement's cancel ends any of them.")
  endif()
endif()
include(CPack)
