"""xpcall as people use it.

    xpcall_test.py XPCALL LIBRARY
"""
import os
import re
import signal
import subprocess
import sys
import unittest

from cases import Case
from stubborn import STUBBORN

IN_WORKER = os.environ["QUOREL_WORKER"] == "1"
XPCALL, LIBRARY = (os.path.abspath(path) for path in sys.argv[1:3])

# A background job ignores SIGINT, and so would the programs that it starts.
signal.signal(signal.SIGINT, signal.default_int_handler)


class Xpcall(Case):
    def setUp(self):
        super().setUp()
        self.environment = {**os.environ, "QUOREL_LIBRARY": LIBRARY}

    def start(self, *arguments, stdout=subprocess.PIPE, **options):
        return subprocess.Popen([XPCALL, *arguments], cwd=self.folder, env=self.environment,
                                stdout=stdout, stderr=subprocess.PIPE, **options)

    def check(self, arguments, status, output, note=b"", **options):
        """`output` is standard output to the byte, `note` a pattern for all of standard error."""
        process = self.start(*arguments, **options)
        out, err = process.communicate(timeout=60)
        self.assertEqual(out, output, arguments)
        self.assertRegex(err, b"(?s)^" + note + b"$", arguments)
        self.assertEqual(process.returncode, status, arguments)

    def test_files_pass_through_unchanged(self):
        data = bytes(range(256)) * 300 + b"\0"
        self.write("in", data)
        for piece in "1", "32768", "4000000000":
            self.check(["--piece", piece, "xp_write_file", "copy", "@in"], 0,
                       b"status 0: every byte was handed over; a regular file now has that size\n")
            self.check(["xp_read_file", "copy"], 0, data, b"76801 bytes\n")
        self.check(["xp_read_file", "/dev/null"], 0, b"", b"0 bytes\n")

    def test_values_and_statuses_come_on_standard_output(self):
        for arguments, status, output, note in (
                (["xp_read_file", "missing"], 1, b"",
                 b"xpcall: xp_read_file gave NULL: it cannot be opened or read.*"),
                (["xp_sprintf", "out", "%s%%%s", "int:-7", "text:null"], 0, b"text = -7%null\n", b""),
                (["xp_sprintf", "out", "%s%s", "+", "a"], 0, b"text = +a\n", b""),
                (["xp_sprintf", "out", "%s", "\x1b[2J\n"], 0, b"text = \x1b[2J\n\n", b""),
                (["xp_sprintf", "out", "%d", "1"], 1, b"text is NULL\n", b"xpcall: .* no value.*"),
                (["xp_scanf", "12 abc", "%s %s", "out", "out", "out"], 0,
                 b"value1 = 12\nvalue2 = abc\nvalue3 is NULL\n", b""),
                (["xp_cmdshell", "echo hello; exit 3", "null"], 1,
                 b"hello\nstatus 3: the command ended with this exit status\n", b""),
                (["--piece", "1", "xp_cmdshell", "./missing"], 1,
                 b"status 127: the command ended with exit status 127: not found\n", b".*"),
                (["xp_cmdshell", "true"], 0, b"status 0: the command succeeded\n", b""),
                (["xp_startmail"], 1, b"", b"xpcall: xp_startmail gave no value: the older mail .*")):
            self.check(arguments, status, output, note)

    def test_text_cannot_command_the_terminal(self):
        ours, theirs = os.openpty()
        self.addCleanup(os.close, ours)
        self.check(["xp_sprintf", "out", "%s", "\x1b[2J\n\x9b"], 0, None, b"", stdout=theirs)
        os.close(theirs)
        self.assertEqual(os.read(ours, 99), rb"text = \x1b[2J\n\u009b" b"\r\n")
        self.check(["xp_\x1b[2J"], 2, b"", rb"xpcall: there is no procedure xp_\\x1b\[2J .*")

    def test_says_what_to_do_about_a_bad_call(self):
        os.truncate(self.write("huge", ""), 1 << 40)  # no block of it exists
        for arguments, note in (
                (["xp_write_file", "f", "@huge"], b"xpcall: huge is too large for this ..-bit program\n"),
                ([], b"xpcall calls procedures.*"),
                (["--piece", "0", "xp_cmdshell", "true"], b"xpcall: --piece takes a number.*"),
                (["--colour"], b".*Try xpcall --help.\n"),
                (["xp_nothing"], b"xpcall: there is no procedure xp_nothing .xpcall --list shows all.\n"),
                (["xp_write_file", "f"], b"xpcall: xp_write_file: parameter 2 .contents. is missing;.*"),
                (["xp_sprintf", "%s", "a"], b"xpcall: .* is an OUT parameter; write out in .*"),
                (["--calls", "xp_cmdshell", "touch f", "+"], b"xpcall: a call is missing.*"),
                (["xp_read_file", "out"], b"xpcall: argument 1 .* is not an OUT parameter; .*"),
                (["xp_write_file", "f", "@missing"], b"xpcall: cannot read missing: No such file.*"),
                (["xp_cmdshell", "int:1.5"], b"xpcall: int: takes a whole number.*"),
                (["--lib", "/missing.so", "xp_cmdshell", "true"],
                 b"xpcall: cannot load /missing.so: .*; install libquorel, build it .* or name its file with --lib .*")):
            self.check(arguments, 2, b"", note)

    def test_a_signal_cancels_the_running_command_with_all_that_it_started(self):
        for ending in signal.SIGINT, signal.SIGTERM, signal.SIGHUP:
            process = self.start("--calls", "xp_cmdshell", STUBBORN, "+", "xp_cmdshell", "echo on")
            self.assertRegex(process.stdout.readline(), b"^pid")
            process.send_signal(ending)
            out, err = process.communicate(timeout=30)  # until the last of them has ended
            self.assertRegex(out, rb"^status 2: .* was killed, .*\n$")
            self.assertEqual((process.returncode, err), (1, b"cancelled\n"))

    def test_several_calls_share_a_session_and_end_with_the_first_that_fails(self):
        server = self.serve()
        # A session that was started leaves a small record behind by design.
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        start = ["--calls", "xp_startsmtp", "ann@a.test", "127.0.0.1", f"int:{server.port}", "+"]
        opened, sent = b"status 0: the session is open\n", b"status 0: the mail server took .*\n"
        for number, more in enumerate((
                (["xp_stopsmtp"], 0, b"status 0: the session is closed\n"),
                (["xp_cmdshell", "exit 3", "+", "xp_read_file", "file"], 1, b"status 3: .*\n"),
                (["xp_write_file", "file", "@none", "+", "xp_read_file", "file"], 2, b""))):
            rest, status, output = more
            process = self.start(*start, "xp_sendmail", "bob@b.test", "text:+", "+", *rest)
            out, _ = process.communicate(timeout=60)
            self.assertRegex(out, b"^" + opened + sent + output + b"$", rest)
            self.assertEqual(process.returncode, status, rest)
            self.assertEqual(len(server.messages), number + 1)
            self.assertEqual(server.quits, number + 1, "a session that was left open is stopped")

    def test_waits_for_its_command_though_its_parent_ignores_children(self):
        self.check(["xp_cmdshell", "exit 3"], 1, b"status 3: the command ended with this exit status\n",
                   preexec_fn=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))

    def test_notices_that_its_output_is_lost(self):
        for arguments in ["--help"], ["--list"], ["xp_cmdshell", "true"]:
            with open("/dev/full", "w") as full:
                self.check(arguments, 1, None, b"xpcall: cannot write to standard output: No space.*",
                           stdout=full)
        server = self.serve()
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        self.check(["--calls", "xp_startsmtp", "ann@a.test", "127.0.0.1", f"int:{server.port}", "+",
                    "xp_sendmail", "bob@b.test"], 1, None, b"xpcall: cannot write .* Bad file .*",
                   stdout=None, preexec_fn=lambda: os.close(1))
        self.assertEqual(server.messages, [])

    def test_a_signal_ends_what_cannot_be_cancelled(self):
        os.mkfifo(self.path("pipe"))
        process = self.start("--calls", "xp_cmdshell", "true", "+", "xp_read_file", "pipe")
        with open(self.path("pipe"), "wb"):
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(timeout=60), 1 if IN_WORKER else -signal.SIGTERM)
        cancelled = b"xpcall: xp_read_file was cancelled\n" if IN_WORKER else b""
        self.assertEqual(process.communicate()[1], cancelled)

    def test_describes_every_procedure_of_the_library(self):
        listed = subprocess.run([XPCALL, "--list"], capture_output=True, text=True, timeout=60).stdout
        symbols = subprocess.run(["nm", "-D", "--defined-only", LIBRARY], capture_output=True,
                                 text=True, timeout=60).stdout
        self.assertEqual(set(re.findall(r"^(xp_\w+):", listed, re.M)),
                         set(re.findall(r" T (xp_\w+)$", symbols, re.M)))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
