#!/usr/bin/python3
"""tools/qxres: the shipped sources make the images they should, and faults are reported in place.

    qxres_test.py QXRES RES_FOLDER IMAGE_FOLDER
"""

import os
import pathlib
import resource
import struct
import subprocess
import sys
import tempfile
import unittest

QXRES, SOURCES, IMAGES = sys.argv.pop(1), pathlib.Path(sys.argv.pop(1)), pathlib.Path(sys.argv.pop(1))
HEAD = "8643 charset=UTF-8;language=en\n"


def qxres(*args, **options):
    return subprocess.run([QXRES, *map(str, args)], encoding="utf-8", check=False,
                          **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options})


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, text):
        path = self.folder / name
        path.write_bytes(text if isinstance(text, bytes) else text.encode())
        return path

    def compiled(self, source, *options):
        image = self.folder / "image"
        run = qxres(source, "-o", image, *options)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return image

    def listed(self, file):
        run = qxres("--list", file)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return run.stdout

    def assert_refused(self, run, *lines):
        self.assertEqual((run.returncode, run.stderr.splitlines()), (1, list(lines)))


class Images(Case):
    def test_every_shipped_language_survives_compiling_and_listing(self):
        sources = sorted(SOURCES.glob("??.txt"))
        self.assertEqual([path.stem for path in sources], ["de", "en", "es", "fr", "ja", "zh"])
        for source in sources:
            shipped = IMAGES / f"nxlg{source.stem}12{'_utf8' if source.stem == 'ja' else ''}.res"
            listing = self.listed(shipped)
            self.assertEqual(listing, self.listed(source))
            again = self.compiled(self.write("listing", listing))
            self.assertEqual(again.read_bytes(), shipped.read_bytes())
            self.assertEqual(sum(again.read_bytes()[12:14]), 16, "a lookup is two loads")

    def test_every_character_set_and_depth_lists_the_same_texts(self):
        plain = self.listed(SOURCES / "ja.txt")
        for label, levels in (("Shift_JIS", 1), ("EUC-JP", 3), ("UTF-16", 4)):
            image = self.compiled(SOURCES / "ja.txt", "--charset", label, "--levels", levels)
            self.assertEqual(self.listed(image).replace(f"charset={label}", "charset=UTF-8"), plain)

    def test_equal_strings_are_one(self):
        both = self.compiled(self.write("s", HEAD + "8640 same\n8641 same\n")).read_bytes()
        self.assertEqual(both.count(b"same"), 1)

    def test_escapes_stand_for_what_a_line_cannot_hold(self):
        source = self.write("s", HEAD + r"1  \sa\tb\\n\nc d\s" + " \n")
        image = self.compiled(source).read_bytes()
        text = " a\tb\\n\nc d ".encode()
        self.assertIn(struct.pack("<H", len(text)) + text, image)
        self.assertIn(r"1     \sa\tb\\n\nc d\s" + "\n", self.listed(self.folder / "image"))


class Faults(Case):
    def test_a_bad_line_is_named(self):
        for line, fault in {
            b"-1 x": "expected an identifier and a text",
            b"9" * 5000 + b" x": "999999999 is above 65535",
            b"1 \xff": "not UTF-8",
            b"1 %1!q!": "unknown parameter type '!q!'",
            b"1 %10": "parameters are %1 to %9, and no digit follows",
            b"1 a\0b": "a text cannot hold U+0000",
            b"1 %1 %2 %1!u!": "%1 stands there 2 times; only the last would be replaced",
            b"8643 x": "8643 was given before, at {}:1",
        }.items():
            source = self.write("s", HEAD.encode() + b"# comment\n\n" + line + b"\n")
            self.assert_refused(qxres(source, "-o", self.folder / "out"),
                                f"{source}:4: {fault.format(source)}")
            self.assertFalse((self.folder / "out").exists())

    def test_texts_must_fit_the_character_set_and_the_record(self):
        for text, options, fault in (
                (HEAD + "1 €", ("--charset", "ISO-8859-1"), ":2: '€' is not in ISO-8859-1"),
                (HEAD, ("--charset", "rot13"), ":1: unknown character set 'rot13'"),
                # Which the library's converter would make a yen sign of.
                (HEAD + r"1 a\\", ("--charset", "Shift_JIS"), r":2: '\\' is not in Shift_JIS"),
                (HEAD + "1 " + "é" * 256, ("--charset", "latin1"), ":2: longer than 511 bytes"),
                ("1 x", (), ": 8643 must be 'charset=LABEL;language=CODE'")):
            source = self.write("s", text)
            self.assert_refused(qxres(source, "-o", "x", *options), f"{source}{fault}")

    def test_check_tells_every_difference_from_the_reference(self):
        english = self.write("en", HEAD + "5000 120\n1 %1 and %2!u!\n2 two\n3 three %%1\n")
        good = self.write("good", HEAD + "5000 120\n1 %2!u! und %1!s!\n2 zwei\n3 drei\n")
        bad = self.write("bad", HEAD + "5000 121\n1 %1 und %2\n3 drei %3\n4 vier\n")
        image = self.compiled(good)
        run = qxres("--check", english, good, image, english)
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        self.assert_refused(qxres("--check", english, good, bad),
                            f"{bad}:3: 1 does not have the parameters of '%1 and %2!u!'",
                            f"{bad}: 2 is missing",
                            f"{bad}:4: 3 does not have the parameters of 'three %%1'",
                            f"{bad}:5: 4 is not in {english}",
                            f"{bad}:2: the version is not that of {english}")

    def test_an_image_is_there_whole_or_not_at_all(self):
        source, out = self.write("s", HEAD), self.folder / "out"
        for output, fault in ((out, "File too large"), ("/dev/null", "Not a regular file"),
                              (source, "would replace its own source")):
            run = qxres(source, "-o", output, preexec_fn=lambda: resource.setrlimit(
                resource.RLIMIT_FSIZE, (100, 100)))
            self.assert_refused(run, f"{output}: {fault}")
        self.assertEqual(os.listdir(self.folder), ["s"])


if __name__ == "__main__":
    unittest.main()
