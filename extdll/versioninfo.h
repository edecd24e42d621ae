#ifndef QUOREL_EXTDLL_VERSIONINFO_H
#define QUOREL_EXTDLL_VERSIONINFO_H

extern "C" {

/// The version record: NUL-terminated strings, ended by an empty one. The first begins with the
/// marker "@@==Version==@1@", by which a tool finds the record in the library's file, and names the
/// module; the others are "KEY=value". Constant after load, readable from any thread.
__attribute__((visibility("default"))) extern char __DBVersionInfo_quorel_static[];
}

/// Prints one entry of the version record, the build machine's UNAME, as a line on standard output,
/// if the environment variable TALVEX_VERSION_INFO is set to anything. One static object does so
/// when the library is loaded; it is the only thing that the library prints on request.
class dbversion_info {
  public:
    dbversion_info();
};

#endif
