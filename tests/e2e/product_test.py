"""The library as its users get it: what the file exports, needs, says and leaves behind.

    product_test.py LIBRARY HOSTCALL EXPORTS_MAP BITS
"""
import os
import re
import subprocess
import sys
import unittest

from hostcall import LIBRARY, line, output, start

EXPORTS_MAP, BITS = sys.argv[3:5]
SANITIZED = bool(os.environ.get("QUOREL_SANITIZE"))
MARKER = b"@@==Version==@1@"


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=120).stdout


def record_of(path):
    """The version record, found by its marker as a tool does."""
    with open(path, "rb") as file:
        data = file.read()
    assert data.count(MARKER) == 1
    start = data.index(MARKER)
    return data[start:data.index(b"\0\0", start)].decode().split("\0")


class Product(unittest.TestCase):
    @unittest.skipIf(SANITIZED, "sanitizers export and need more")
    def test_registers_no_destructor_that_would_run_at_exit_beside_other_threads(self):
        self.assertNotIn("__cxa_atexit", run("nm", "-D", LIBRARY))

    @unittest.skipIf(SANITIZED, "sanitizers export and need more")
    def test_exports_the_documented_symbols_and_needs_the_c_library_only(self):
        exported = {line.split()[2] for line in run("nm", "-D", "--defined-only", LIBRARY).splitlines()}
        with open(EXPORTS_MAP) as exports:
            listed = re.search(r"global:(.*?)local:", exports.read(), re.S).group(1)
        self.assertEqual(exported, set(re.findall(r"\w+", listed)))
        needed = set(re.findall(r"NEEDED.*\[(.*?)\]", run("readelf", "-d", LIBRARY)))
        self.assertLessEqual({re.match(r"(ld-linux|lib[a-z]+)", name).group() for name in needed},
                             {"libc", "ld-linux", "libm", "libdl", "libpthread"})

    def test_has_the_word_size_that_was_asked_for(self):
        with open(LIBRARY, "rb") as file:
            self.assertEqual(file.read(5), b"\x7fELF" + {"32": b"\1", "64": b"\2"}[BITS])

    def test_carries_its_version_record(self):
        record = record_of(LIBRARY)
        self.assertEqual(record[:8], [
            MARKER.decode() + "MODULE=libquorel_static.so.1", "VERSION_CLASS=GA", "VERSION_MAJOR=12",
            "VERSION_MINOR=0", "VERSION_PATCH=1", "BUILD_NUMBER=3891", "POINTERSIZE=" + BITS,
            "PLATFORM=linux"])
        self.assertEqual([entry.partition("=")[0] for entry in record[8:]], [
            "DATE", "TIME", "HOST", "THREADS", "PRODUCTION", "COMPILER", "UNAME", "IDENT", "NOTICE",
            "EXTENSIONS"])
        for entry in record:
            self.assertTrue(entry.partition("=")[2], entry)
        self.assertIn("\n", record[16])

    @unittest.skipIf(SANITIZED, "the sanitizer's own run time stays behind")
    def test_loads_and_unloads_without_growing(self):
        # The C library counts blocks that it caches for a thread as in use. The start fails for want
        # of a host, after the network has been set up for it.
        self.assertEqual(output("reload 5000", line("xp_read_file", {1: "/proc/self/exe"}),
                                start(25, host=None), GLIBC_TUNABLES="glibc.malloc.tcache_count=0"),
                         "regions 0 descriptors 0 heap 0\n")

    def test_prints_one_entry_on_request_and_otherwise_nothing(self):
        os.environ.pop("TALVEX_VERSION_INFO", None)
        self.assertEqual(output(), "")
        self.assertEqual(output(TALVEX_VERSION_INFO=""), record_of(LIBRARY)[14] + "\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
