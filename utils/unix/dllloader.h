#ifndef QUOREL_UTILS_UNIX_DLLLOADER_H
#define QUOREL_UTILS_UNIX_DLLLOADER_H

/// Opens shared libraries.

/// Takes a line about what is about to be loaded.
using a_dll_report = void (*)(const char* text);

/// Has every load reported from now on; null (the default) ends that. May be called from any
/// thread.
void ut_dll_set_report(a_dll_report report);

/// Opens the library at `path` with all of its symbols bound, and none of them visible to others.
/// Null when it cannot be opened, or `path` is null. The handle goes back with ut_dll_close().
///
/// A report reads: Loading DLL "<path>", <version>, where the version is what the library's file
/// says in a version record of this system's form, or "(Version info not available)".
void* ut_dll_open(const char* path);

/// The address of a symbol; null when the library has none of that name, or `dll` is null.
void* ut_dll_symbol(void* dll, const char* name);

/// Closes the library; null is ignored.
void ut_dll_close(void* dll);

#endif
