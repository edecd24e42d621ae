"""quorelsql as its users meet it: on the command line, with scripts, and at a terminal.

    quorelsql_test.py QUORELSQL
"""
import csv
import io
import json
import os
import signal
import stat
import subprocess
import sys
import unittest
from base64 import b64encode

import pexpect

from cases import Case
from stubborn import STUBBORN

IN_WORKER = os.environ["QUOREL_WORKER"] == "1"
QUORELSQL = os.path.abspath(sys.argv[1])
PATIENCE = 60  # seconds until a test gives up; nothing waits that long when all is well
UP, CTRL_A, CTRL_U = "\033[A", "\001", "\025"
WRITTEN = "status 0: every byte was handed over; a regular file now has that size"

# A background job ignores SIGINT, and so would the programs that it starts.
signal.signal(signal.SIGINT, signal.default_int_handler)


class Scratch(Case):
    """The history goes into the test's folder, too."""

    def setUp(self):
        super().setUp()
        self.environment = {**os.environ, "TERM": "xterm", "XDG_STATE_HOME": self.path("state")}
        self.environment.pop("QUOREL_LIBRARY", None)

    def assert_gone(self, pid):
        with self.assertRaises(ProcessLookupError):
            os.kill(pid, 0)


class Batch(Scratch):
    def run_sql(self, *arguments, stdin="", stdout=subprocess.PIPE, **options):
        done = subprocess.run([QUORELSQL, *arguments], input=stdin, stdout=stdout, text=True,
                              stderr=subprocess.PIPE, cwd=self.folder, env=self.environment,
                              timeout=PATIENCE, **options)
        return done.returncode, done.stdout, done.stderr

    def test_shows_what_each_kind_of_procedure_hands_back(self):
        for sql, shown in (
            ("CALL xp_write_file('a', contents => x'00ff')", WRITTEN),
            ("CALL xp_write_file('b', (SELECT xp_read_file('a')) -- a copy\n);", WRITTEN),
            ("CALL xp_read_file('b')", "xp_read_file -------------- x'00ff' (1 row)"),
            ("CALL xp_read_file('none')", "xp_read_file -------------- NULL (1 row) "
                                          "NULL: it cannot be opened or read, or its name is NULL"),
            ("CALL xp_sprintf('%s-%s', 'a', value2 => 1 + 1)", "text ------ a-2 (1 row)"),
            ("CALL xp_scanf(format => '%s %s', input => '12 abc')",
             "value1 | value2 --------+-------- 12 | abc (1 row)"),
            ("CALL xp_scanf('', '%s')", "value1 -------- NULL (1 row) NULL: the input does not match "
                                        "the format, or one of them is NULL"),
            ("CALL xp_startmail(); SELECT xp_stopmail() AS none",
             "no result: the older mail interface is not there on this system; use xp_startsmtp "
             "none ------ NULL (1 row)"),
            ("call XP_CmdShell('echo out; exit 3')",
             "out status 3: the command ended with this exit status"),
        ):
            status, out, error = self.run_sql("-c", sql)
            self.assertEqual((status, " ".join(out.split()), error), (0, shown, ""), sql)

    def test_says_what_to_do_about_a_bad_call(self):
        for sql, message in (
            ("CALL xp_raed_file('a')", "did you mean xp_read_file?"),
            ("CALL frobnicate()", r"no procedure frobnicate \(\.procedures lists all\)"),
            ("CALL xp_write_file('a', content => 1)", "no parameter content; its parameters: .*contents"),
            ("CALL xp_cmdshell('a', 'b', 'c')", "too many arguments .* command, output"),
            ("CALL xp_sprintf('%s%s', 'a', value3 => 'c')", r"\(value2\) is NULL, .*value3 would be lost"),
            ("CALL xp_scanf('a', 'b', value3 => 'c')", "value3.* is an OUT parameter"),
            ("CALL xp_sprintf(@out, '%s')", "no variables here"),
            ("CALL xp_stopsmtp(cid => NULL)", r"parameter 1 \(cid\) is not NULL; leave it out"),
            (".raw", "say on or off"),
            (".frob", "no command .frob; .help lists them"),
            (".help xp_scan", "did you mean xp_scanf?"),
            (".mode box", "the modes are table, line, csv, json"),
            ("SELECT [\033[31m]", r"no such column: \\x1b\[31m\n\Z"),
        ):
            status, out, error = self.run_sql("-c", sql)
            self.assertEqual((status, out), (1, ""), sql)
            self.assertRegex(error, r"\Aquorelsql: -c:1: .*" + message, sql)

    def test_a_mail_session_lasts_from_start_to_stop(self):
        server = self.serve()
        self.write("file", "attached")
        # A session that was started leaves a small record behind by design.
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        status, out, error = self.run_sql("-c", f"""
            CALL xp_startsmtp(host => '127.0.0.1', port => {server.port}, sender => 'ann@a.test');
            CALL xp_sendmail(subject => 'Hi', recipient => 'bob@b.test', include_file => 'file');
            CALL xp_sendmail(recipient => 'bob@b.test', message => 'a' || char(10) || 'b');
            .raw on
            CALL xp_sendmail(recipient => 'bob@b.test', message => 'a' || char(10) || 'b');
            CALL xp_startsmtp(host => '127.0.0.1', port => {server.port}, cid => 77);
            CALL xp_stopsmtp(); CALL xp_sendmail(recipient => 'eve@e.test')""")
        self.assertEqual((status, error), (0, ""))
        self.assertEqual([line.split(":")[0] for line in out.splitlines()],
                         6 * ["status 0"] + ["status 5"])
        self.assertEqual(server.quits, 2, "under another number too")
        [(_, recipients, message), (_, _, whole), (_, _, raw)] = server.messages
        self.assertEqual(recipients, ["bob@b.test"])
        self.assertIn(b64encode(b"attached"), message)
        self.assertIn(b"\r\na\r\nb\r\n", whole)
        self.assertIn(b"\r\na\nb\r\n", raw)

    def test_a_script_stops_at_its_first_error_and_names_the_line(self):
        one = " 1\n---\n 1\n(1 row)\n\n"
        for name, text in (
                ("first.sql", "-- first\nSELECT 1;\n\nCALL xp_read_file(\n  'a',\n  'b');\nSELECT 2;\n"),
                ("zero.sql", "SELECT 1;\n\nSELECT 2\0;\n"),
                ("mark.sql", "\ufeffSELECT json(value) AS j FROM json_each('[1, \"x\"]');\n"),
                ("inner.sql", "SELEC;\n.print inner\n"),
                ("outer.sql", ".print outer\n.read inner.sql\n.print on\n"),
                ("self.sql", ".read self.sql\n")):
            self.write(name, text)
        syntax = 'inner.sql:1: near "SELEC": syntax error\n'
        for arguments, stdin, out, error in (
                (["first.sql"], "", one, "first.sql:6: too many arguments for xp_read_file"),
                (["zero.sql"], "", one, "zero.sql:3: a zero byte"),
                (["mark.sql"], "", " j\n---\n 1\n", "mark.sql:1: malformed JSON\n"),
                (["none.sql"], "", "", "cannot read none.sql: No such file or directory\n"),
                (["-"], "\nSELECT\n1,\nfrom;", "", 'standard input:4: near "from": syntax error\n'),
                (["outer.sql"], "", "outer\n", syntax),
                (["-c", ".bail off", "-c", ".read outer.sql"], "", "outer\ninner\non\n", syntax),
                (["-c", ".read none"], "", "", "-c:1: cannot read none: No such file or directory\n"),
                (["self.sql"], "", "", "self.sql:1: self.sql: scripts run scripts too deep\n")):
            status, said, noted = self.run_sql(*arguments, stdin=stdin)
            self.assertEqual((status, said), (1, out), arguments)
            self.assertTrue(noted.startswith("quorelsql: " + error), noted)
        for stdin, out in (("SELECT 1;\n.quit\nSELECT 2;\n", one),
                           ("CALL xp_cmdshell('wc -c');\n.print further\n",
                            "0\nstatus 0: the command succeeded\nfurther\n")):
            self.assertEqual(self.run_sql(stdin=stdin), (0, out, ""))

    def test_gives_programs_all_of_it_in_the_form_they_want(self):
        script = "CREATE TABLE t(a); CREATE VIEW v AS SELECT 1; INSERT INTO t VALUES(zeroblob(50000));"
        self.assertEqual(self.run_sql("a.db", "-c", script), (0, "", ""))
        whole = f"x'{'00' * 50000}'"
        self.assertIn(whole, self.run_sql("a.db", "-c", "SELECT a FROM t")[1], "a table in a pipe")
        for option, sql, rows in (
                ("-json", "SELECT a FROM t", [{"a": whole}]),
                ("-json", "CALL xp_cmdshell('exit 3')", [
                    {"status": 3, "meaning": "the command ended with this exit status"}]),
                ("-json", "CALL xp_scanf('é b', '%s %s')", [{"value1": "é", "value2": "b"}]),
                ("-csv", "CALL xp_cmdshell('')", [["status", "meaning"], ["0", "the command succeeded"]]),
                ("-csv", ".headers off\nSELECT a, NULL FROM t", [[whole, ""]])):
            status, out, error = self.run_sql("a.db", option, "-c", sql)
            read = json.loads if option == "-json" else lambda text: [*csv.reader(io.StringIO(text))]
            self.assertEqual((status, read(out), error), (0, rows, ""), sql)
        self.assertEqual(self.run_sql("a.db", "-c", ".tables", "-c", ".schema T", "-c", ".mode line",
                                      "-c", "SELECT 1 AS a, 2 AS bb", "-c", "quit", "-c", "x"), (
            0, "t\nv\nCREATE TABLE t(a);\n a = 1\nbb = 2\n", ""))

    def test_a_database_file_neither_reaches_the_procedures_nor_is_locked_by_them(self):
        self.run_sql("a.db", "-c", "CREATE TABLE t AS SELECT 'a.db' AS name")
        self.run_sql("view.db", "-c", "CREATE VIEW v AS SELECT xp_cmdshell('echo owned')")
        self.write("no.db", "not a database, but long enough to be looked at" * 20)
        for database, sql, error in (
                ("view.db", "SELECT * FROM v", "-c:1: unsafe use of xp_cmdshell()"),
                ("a.db", "CALL xp_read_file((SELECT name FROM t))", "-c:1: this program has that file in use"),
                ("no.db", "SELECT 1", "cannot open the database no.db: file is not a database")):
            status, out, noted = self.run_sql(database, "-c", sql)
            self.assertEqual((status, out), (1, ""))
            self.assertTrue(noted.startswith("quorelsql: " + error), noted)
        self.environment["QUORELSQL"] = QUORELSQL
        writer = """'"$QUORELSQL" a.db -c ''DELETE FROM t'''"""
        self.assertEqual(self.run_sql("a.db", "-c", f"""
            CALL xp_cmdshell((SELECT replace({writer}, 'a.db', name) FROM t))"""),
                         (0, "status 0: the command succeeded\n", ""))

    def test_tells_how_it_is_used(self):
        self.assertIn("--lib FILE", self.run_sql("--help")[1])
        self.assertRegex(self.run_sql("--version")[1], r"\Aquorelsql \d+\.\d+\.\d+ \(SQLite 3")
        for arguments, code, message in (
                (["--frob"], 2, "unknown option --frob"), (["-jsn"], 2, "unknown option -jsn"),
                (["-c"], 2, "-c needs a value"), (["a", "b", "c"], 2, "too many names"),
                (["-c", "SELECT 1", "a.sql"], 2, "not both"),
                (["--lib", "none.so", "-c", "SELECT 1"], 1, "name its file with --lib")):
            status, out, error = self.run_sql(*arguments)
            self.assertEqual((status, out), (code, ""))
            self.assertTrue(error.startswith("quorelsql: ") and message in error, error)

    def test_notices_that_its_output_is_lost_and_its_input_is_none(self):
        for arguments in ["-c", "SELECT 1"], ["-c", ".help"], ["--help"], ["--version"]:
            with open("/dev/full", "w") as full:
                status, _, error = self.run_sql(*arguments, stdout=full)
            self.assertEqual((status, error),
                             (1, "quorelsql: cannot write: No space left on device\n"), arguments)
        folder = os.open(self.folder, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        self.assertEqual(self.run_sql(preexec_fn=lambda: os.dup2(folder, 0)),
                         (1, "", "quorelsql: cannot read standard input: Is a directory\n"))

    def test_waits_for_its_command_though_its_parent_ignores_children(self):
        ignore = lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN)
        self.assertEqual(self.run_sql("-c", "CALL xp_cmdshell('exit 3')", preexec_fn=ignore)[1],
                         "status 3: the command ended with this exit status\n")

    def shell(self, sql):
        shell = subprocess.Popen([QUORELSQL, "-c", sql], stdout=subprocess.PIPE, text=True,
                                 stderr=subprocess.PIPE, cwd=self.folder, env=self.environment)
        self.addCleanup(shell.communicate)
        self.addCleanup(shell.kill)
        return shell

    def test_a_signal_ends_the_command_and_the_script(self):
        for statement, shown in (("CALL", "cancelled; status 2: .*"), ("SELECT", "")):
            for ending in signal.SIGINT, signal.SIGTERM, signal.SIGHUP:
                shell = self.shell(f"{statement} xp_cmdshell('{STUBBORN}'); SELECT 'further';")
                pid = int(shell.stdout.readline().split()[1])
                shell.send_signal(ending)
                if ending != signal.SIGINT:
                    shell.send_signal(signal.SIGHUP)  # one seldom comes alone
                out, error = shell.communicate(timeout=PATIENCE)
                self.assert_gone(pid)
                if ending != signal.SIGINT:
                    self.assertIn(shell.returncode, (-ending, -signal.SIGHUP), statement)
                    continue
                self.assertEqual((shell.returncode, error), (1, "quorelsql: -c:1: interrupted\n"))
                self.assertRegex(out, rf"\A{shown}\n?\Z")

    def test_a_signal_ends_a_shell_that_waits_for_a_file(self):
        os.mkfifo(self.path("pipe"))
        shell = self.shell("CALL xp_read_file('pipe')")
        with open(self.path("pipe"), "w"):  # until it is read from
            shell.send_signal(signal.SIGTERM)
            self.assertEqual(shell.wait(PATIENCE), -signal.SIGTERM)


class Terminal(Scratch):
    PROMPT = "quorelsql> "

    def start(self, **options):
        try:
            # A lone program's name would be taken apart at its blanks.
            shell = pexpect.spawn("env", [QUORELSQL], cwd=self.folder, env=self.environment,
                                  encoding="utf-8", timeout=PATIENCE, dimensions=(24, 100), **options)
        except OSError as error:
            self.skipTest(f"no pseudo-terminal here: {error}")
        self.addCleanup(shell.close, force=True)
        shell.expect(self.PROMPT)
        return shell

    def ask(self, shell, typed, answer):
        """Types a line and waits for its answer, which is not the echo of the line."""
        shell.sendline(typed)
        shell.expect(r"\n *" + answer)
        shell.expect(self.PROMPT)

    def leave(self, shell):
        shell.sendeof()
        shell.expect(pexpect.EOF)
        shell.wait()
        self.assertEqual((shell.exitstatus, shell.signalstatus), (0, None))

    def test_edits_lines_and_recalls_statements(self):
        shell = self.start()
        self.ask(shell, "ELECT 'edi' || 'ted';" + CTRL_A + "S", "edited")
        shell.sendline("SELECT 'two' ||")
        shell.expect(r"\.\.\.> ")
        self.ask(shell, "'lines';", "twolines")
        self.ask(shell, UP, "twolines")
        self.ask(shell, "xp_\tr\t" + CTRL_U + ".help xp_re\t", "xp_read_file: reads")
        self.ask(shell, "CALL xp_cmdshell(\t'true');", "status 0")
        self.ask(shell, " SELECT 'unseen';", "unseen")
        self.ask(shell, "SELECT 'a password';", "a password")
        self.leave(shell)

        history = self.path("state/quorelsql/history")
        self.assertEqual(stat.S_IMODE(os.stat(history).st_mode), 0o600)
        self.assertEqual(stat.S_IMODE(os.stat(os.path.dirname(history)).st_mode), 0o700)
        with open(history) as file:
            kept = file.read()
        self.assertIn("lines", kept)
        self.assertNotRegex(kept, "unseen|password")

        shell, other = self.start(), self.start()
        self.ask(shell, UP + UP + UP, "twolines")
        self.ask(other, ".print elsewhere", "elsewhere")
        self.ask(shell, ".print here", "here")
        self.leave(shell)
        self.leave(other)
        with open(history) as file:
            self.assertRegex(file.read(), r"(?s)lines.*elsewhere.*here")

    def test_ctrl_c_voids_the_input(self):
        shell = self.start()
        shell.sendline("SELECT 'half a")
        shell.expect(r"\.\.\.> ")
        shell.send("statement" + CTRL_A)
        shell.sendintr()
        shell.expect(r"\^C.*" + self.PROMPT)
        self.ask(shell, "SELECT 40 + 2;", "42")
        self.leave(shell)

    def test_ctrl_c_cancels_what_runs(self):
        shell = self.start()
        for statement, answer in (("CALL", "cancelled; status 2: "),
                                  ("SELECT", "quorelsql: interrupted")):
            shell.sendline(f"{statement} xp_cmdshell('{STUBBORN}'); SELECT 'further' AS x;")
            shell.expect(r"pid (\d+)")
            pid = int(shell.match.group(1))
            shell.sendintr()
            shell.expect(r"\n" + answer)
            self.assert_gone(pid)
            shell.expect(self.PROMPT)
            self.assertNotIn("further", shell.before)
        self.ask(shell, "SELECT 40 + 2;", "42")
        self.leave(shell)

    def test_shows_bytes_and_time_while_something_runs(self):
        os.mkfifo(self.path("pipe"))
        for self.environment["TERM"] in ("xterm", "dumb"):
            shell = self.start()
            for sql, what, answer in (
                    ("CALL xp_read_file('pipe');", "xp_read_file", r"\(3145728 bytes\)"),
                    ("SELECT length(xp_read_file('pipe'));", "running", r"\n +3145728")):
                shell.sendline(sql)
                with open(self.path("pipe"), "wb") as pipe:
                    pipe.write(bytes(3 << 20))
                    pipe.flush()
                    shell.expect(what + r": (3\.0|2\.9) MiB, \d+\.\d s" + (r" \(Ctrl-C cancels\)" if IN_WORKER else r" *[\r\033]"))
                shell.expect(answer)
            for statement, what in (("CALL", "xp_cmdshell"), ("SELECT", "running")):
                shell.sendline(f"{statement} xp_cmdshell('read line <pipe');")
                shell.expect(what + r": \d+\.\d s \(Ctrl-C cancels\)")
                open(self.path("pipe"), "w").close()
                shell.expect(self.PROMPT)
            self.leave(shell)

    def test_promises_no_ctrl_c_to_who_ignores_it(self):
        os.mkfifo(self.path("pipe"))
        shell = self.start(preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
        shell.sendline("CALL xp_cmdshell('read line <pipe');")
        shell.expect(r"xp_cmdshell: \d+\.\d s *[\r\033]")
        open(self.path("pipe"), "w").close()
        shell.expect(self.PROMPT)
        self.leave(shell)

    def test_understands_the_words_of_other_shells_and_hides_nothing(self):
        for word in "quit", "EXIT;", "\\q", ".exit":
            shell = self.start()
            self.ask(shell, "help", "A statement ends")
            for mode in "line", "csv", "json", "table":
                self.ask(shell, f".mode {mode}\rSELECT char(0x202e) AS x;", r".*\\u202e")
            shell.sendline(word)
            shell.expect(pexpect.EOF)

    def test_works_without_a_terminal_description(self):
        del self.environment["TERM"]
        shell = self.start()
        self.ask(shell, "ELECT 40 + 2;" + CTRL_A + "S", "42")
        self.leave(shell)


if __name__ == "__main__":
    result = unittest.main(argv=sys.argv[:1], exit=False).result
    for test, reason in result.skipped:
        print("skipped:", test.id(), reason)
    sys.exit(not result.wasSuccessful() or (77 if result.skipped else 0))
