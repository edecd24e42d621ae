#include "extdll/versioninfo.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "extdll/buildmachine.h"
#include "quorelversion.h"

#define BUILD_DATE "2013/04/26"
#if UINTPTR_MAX == 0xFFFFFFFFU
#define POINTER_BITS "32"
#else
#define POINTER_BITS "64"
#endif

// Entries end with a zero each; the literal's own terminator is the empty string that ends the
// record.
char __DBVersionInfo_quorel_static[] =
    "@@==Version==@1@MODULE=libquorel_static.so.1\0"
    "VERSION_CLASS=GA\0"
    "VERSION_MAJOR=" QUOREL_VERSION_MAJOR "\0"
    "VERSION_MINOR=" QUOREL_VERSION_MINOR "\0"
    "VERSION_PATCH=" QUOREL_VERSION_PATCH "\0"
    "BUILD_NUMBER=" QUOREL_BUILD "\0"
    "POINTERSIZE=" POINTER_BITS "\0"
    "PLATFORM=linux\0"
    "DATE=" BUILD_DATE "\0"
    "TIME=10:01:38\0"
    "HOST=" BUILD_HOST "\0"
    "THREADS=posix\0"
    "PRODUCTION=production\0"
    "COMPILER=gnu\0"
    "UNAME=" BUILD_UNAME "\0"
    "IDENT=libquorel_static.so.1/" QUOREL_VERSION "/linux/" QUOREL_BUILD "/" BUILD_DATE "\0"
    "NOTICE=Quorel external procedures\n"
    "Copyright (c) 2026 The Quorel maintainers\n"
    "Released under the MIT License\0"
    "EXTENSIONS=" EXPORTED_PROCEDURES "\0";

namespace {

// Kept: a fixed count. It reaches the UNAME entry, though IDENT would tell more.
constexpr int entries_before_printed = 14;

const dbversion_info print_at_load;

}  // namespace

dbversion_info::dbversion_info() {
    if (getenv("TALVEX_VERSION_INFO") == nullptr) return;
    const char* entry = __DBVersionInfo_quorel_static;
    for (int skipped = 0; skipped < entries_before_printed; ++skipped) entry += strlen(entry) + 1;
    puts(entry);
}
