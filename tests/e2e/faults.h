#ifndef QUOREL_TESTS_E2E_FAULTS_H
#define QUOREL_TESTS_E2E_FAULTS_H

/// One planned fault in a process. A program that links faults.cpp has malloc and its kin and the
/// system calls of whatever it loads go through there, as the symbols of a program come first. They
/// are counted, made to fail and traced while the calling thread says so, and pass otherwise.

#include <cstddef>
#include <map>

namespace faults {

enum Kind {
    error,        // it fails, with an error that it may meet
    interrupted,  // a signal came first
    partial,      // it moves one byte
    again,        // nothing can be moved now
};
constexpr Kind kinds[] = {error, interrupted, partial, again};
constexpr const char* kind_names[] = {"error", "interrupted", "partial", "again"};

/// The calls that led to a place, the innermost first: of those that are in the library under test,
/// where in it they return to.
using Trace = std::ptrdiff_t[16];

/// What a process tells of its fault; in shared memory, it outlives the process.
struct Report {
    Kind kind;      // of the fault
    int number;     // the call that fails, of those that can in this way; from 1, 0 for none
    bool in_child;  // count in the child that is forked meanwhile, and not here

    int counted;       // calls so far
    const char* call;  // that failed, or null
    Trace place;       // where it was called from
    char findings[4096];
};

/// From now on calls of this thread are faulted as `report` says, while counting() is on, and the
/// memory that it takes then is on record until it is given back.
void plan(Report* report, const char* library_path);
void counting(bool on);

struct Block {
    Trace place;
};
/// What this thread took while it counted and nobody has given back.
const std::map<void*, Block>& taken();

}  // namespace faults

#endif
