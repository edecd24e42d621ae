# Where the libraries of tools and providers come from. A 64-bit build takes the machine's own
# packages; a 32-bit build takes Debian's i386 packages, which tools/setup unpacks into
# build/sysroot-i386 without installing them. The product itself links none of these.

if(QUOREL_BITS EQUAL 32)
  set(QUOREL_SYSROOT "${CMAKE_SOURCE_DIR}/build/sysroot-i386" CACHE PATH "Unpacked i386 packages")
  set(_quorel_libdir "${QUOREL_SYSROOT}/usr/lib/i386-linux-gnu")
  set(_quorel_incdirs "${QUOREL_SYSROOT}/usr/include" "${QUOREL_SYSROOT}/usr/include/i386-linux-gnu")
else()
  set(QUOREL_SYSROOT "")
  set(_quorel_libdir "/usr/lib/x86_64-linux-gnu")
  set(_quorel_incdirs "/usr/include")
endif()

# quorel_static_dependency(name HEADER header LIBRARIES a.a b.a [SYSTEM m dl]):
# an interface target over static archives, whose symbols stay inside whatever links them. The
# target is missing, with a message, where the packages are not unpacked.
function(quorel_static_dependency name)
  cmake_parse_arguments(arg "" "HEADER" "LIBRARIES;SYSTEM" ${ARGN})
  find_path(${name}_INCLUDE "${arg_HEADER}" PATHS ${_quorel_incdirs} NO_DEFAULT_PATH NO_CACHE)
  set(archives "")
  foreach(archive ${arg_LIBRARIES})
    if(NOT EXISTS "${_quorel_libdir}/${archive}")
      message(STATUS "${name}: ${archive} is missing; tools/setup provides it")
      return()
    endif()
    list(APPEND archives "${_quorel_libdir}/${archive}")
  endforeach()
  if(NOT ${name}_INCLUDE)
    message(STATUS "${name}: ${arg_HEADER} is missing; tools/setup provides it")
    return()
  endif()
  add_library(${name} INTERFACE)
  if(NOT ${name}_INCLUDE STREQUAL "/usr/include")
    target_include_directories(${name} SYSTEM INTERFACE "${${name}_INCLUDE}")
  endif()
  target_link_libraries(${name} INTERFACE ${archives} ${arg_SYSTEM})
  target_link_options(${name} INTERFACE -Wl,--exclude-libs,ALL)
endfunction()

quorel_static_dependency(quorel_sqlite_dep HEADER sqlite3.h
  LIBRARIES libsqlite3.a SYSTEM m dl pthread)
quorel_static_dependency(quorel_libedit_dep HEADER editline/readline.h
  LIBRARIES libedit.a libtinfo.a libbsd.a libmd.a)
quorel_static_dependency(quorel_benchmark_dep HEADER benchmark/benchmark.h
  LIBRARIES libbenchmark.a SYSTEM pthread)
