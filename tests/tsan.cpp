// What ThreadSanitizer leaves alone in every test. Linked into the tests, since the path of a file
// with suppressions may hold no blank.

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions();
const char* __tsan_default_suppressions() {
    // The dynamic linker opens and closes libraries under a lock of its own, which ThreadSanitizer
    // does not see: one thread's dlclose() of what another opened is no race.
    return "race:ld-linux-x86-64.so.2\n";
}
