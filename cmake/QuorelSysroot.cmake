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

# quorel_dependency(name HEADER header LIBRARIES a.a b.a [SYSTEM m dl]):
# an interface target over archives, whose symbols stay inside whatever links them. The target is
# missing, with a message, where the packages are.
function(quorel_dependency name)
  cmake_parse_arguments(arg "" "HEADER" "LIBRARIES;SYSTEM" ${ARGN})
  find_path(header_folder "${arg_HEADER}" PATHS ${_quorel_incdirs} NO_DEFAULT_PATH NO_CACHE)
  set(files "${header_folder}/${arg_HEADER}")
  foreach(library ${arg_LIBRARIES})
    list(APPEND files "${_quorel_libdir}/${library}")
  endforeach()
  foreach(file ${files})
    if(NOT EXISTS "${file}")
      message(STATUS "${name}: ${file} is missing; tools/setup provides it")
      return()
    endif()
  endforeach()
  list(POP_FRONT files)

  add_library(${name} INTERFACE)
  if(QUOREL_SYSROOT)
    target_include_directories(${name} SYSTEM INTERFACE ${_quorel_incdirs})
  endif()
  target_link_libraries(${name} INTERFACE ${files} ${arg_SYSTEM})
  target_link_options(${name} INTERFACE -Wl,--exclude-libs,ALL)
endfunction()

quorel_dependency(quorel_sqlite_dep HEADER sqlite3.h LIBRARIES libsqlite3.a SYSTEM m dl pthread)
# Libraries of the system's own in what is packaged, which is 64-bit: libpq has Kerberos and LDAP below
# it, and libidn2 a licence that lets its users replace it.
if(QUOREL_BITS EQUAL 64)
  quorel_dependency(quorel_pq_dep HEADER postgresql/libpq-fe.h LIBRARIES libpq.so)
  quorel_dependency(quorel_idn2_dep HEADER idn2.h LIBRARIES libidn2.so)
else()
  quorel_dependency(quorel_idn2_dep HEADER idn2.h LIBRARIES libidn2.a libunistring.a)
endif()
quorel_dependency(quorel_libedit_dep HEADER editline/readline.h
  LIBRARIES libedit.a libtinfo.a libbsd.a libmd.a)
quorel_dependency(quorel_crypto_dep HEADER openssl/evp.h LIBRARIES libcrypto.a SYSTEM dl pthread)
quorel_dependency(quorel_ssl_dep HEADER openssl/ssl.h LIBRARIES libssl.a libcrypto.a SYSTEM dl pthread)
# Debian ships Google Benchmark as a shared library only.
quorel_dependency(quorel_benchmark_dep HEADER benchmark/benchmark.h
  LIBRARIES libbenchmark.so SYSTEM pthread)
