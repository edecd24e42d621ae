"""The loadable extension in programs that know nothing of it: sqlite3 and Python.

    extension_test.py EXTENSION LIBRARY QUORELSQL
"""
import os
import shutil
import sqlite3
import subprocess
import sys
import threading
import unittest
import unittest.mock

from cases import Case

EXTENSION, LIBRARY, QUORELSQL = (os.path.abspath(path) for path in sys.argv[1:4])
WORKER = os.path.join(os.path.dirname(QUORELSQL), "../worker/quorel-worker")
os.environ["QUOREL_LIBRARY"] = LIBRARY


def connect(database=":memory:"):
    return load(sqlite3.connect(database, check_same_thread=False))


def load(connection):
    connection.enable_load_extension(True)
    connection.load_extension(EXTENSION)
    return connection


def shell(*sql, extension=EXTENSION, entry="", **environment):
    """Standard output and error of the sqlite3 program."""
    result = subprocess.run(["sqlite3", "-batch", ":memory:", f'.load "{extension}" {entry}', *sql],
                            capture_output=True, text=True, timeout=60,
                            env={**os.environ, **environment})
    return result.stdout, result.stderr


# What a stranger's file may hold. CALL touches the file "made" in the current directory.
CALL = "xp_cmdshell('touch made')"
COMPOSED = "'SELECT xp_cmd' || 'shell(''touch made'')'"
SCHEMAS = {
    "check": f"CREATE TABLE t(a, CHECK({CALL} >= 0))",
    "quoted": "CREATE TABLE t(a, CHECK([XP_CmdShell]('touch made') >= 0))",
    "mark": f"CREATE TABLE t(a, CHECK(\ufeff{CALL} >= 0))",
    "virtual": f"CREATE TABLE t(a, g AS ({CALL}))",
    "stored": f"CREATE TABLE t(a, g AS ({CALL}) STORED)",
    "index": f"CREATE TABLE t(a); CREATE INDEX i ON t(a, {CALL})",
    "partial": f"CREATE TABLE t(a); CREATE INDEX i ON t(a) WHERE {CALL} >= 0",
    "view": f"CREATE TABLE b(a); CREATE VIEW t AS SELECT a, {CALL} FROM b",
    "trigger": f"CREATE TABLE t(a); CREATE TRIGGER r AFTER INSERT ON t BEGIN SELECT {CALL}; END",
    "default": f"CREATE TABLE t(a, d DEFAULT ({CALL}))",
    "composed": f"CREATE TABLE t(a, CHECK(sha3_query({COMPOSED}) IS NULL))",
}
STATEMENTS = [
    "SELECT * FROM t", "INSERT INTO t(a) VALUES(2)", "UPDATE t SET a = a + 1", "REINDEX",
    "PRAGMA integrity_check", "PRAGMA quick_check", "VACUUM", "CREATE TABLE u AS SELECT * FROM t",
    "CREATE INDEX j ON t(a)", "ALTER TABLE t ADD COLUMN n NOT NULL DEFAULT 1 CHECK(n)",
    "ALTER TABLE t DROP COLUMN a", "DELETE FROM t",
    # The program itself calls the procedure, and what it asks for runs neither.
    "SELECT *, xp_cmdshell('true') FROM t", "INSERT INTO t(a) VALUES(3) RETURNING xp_cmdshell('true')",
]
NAMED = [sql + " -- xp_cmdshell('true')" for sql in STATEMENTS]
# The last one is what SQLite makes of an error inside ALTER TABLE ADD.
REFUSED = ("xp_cmdshell is refused (while|inside|since)|unsafe use of|non-deterministic functions"
           "|SQL logic error")


class StrangeFile(Case):
    """Whatever a database file says, in whatever statement: none of it runs."""

    def setUp(self):
        super().setUp()
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)

    def test_runs_nothing(self):
        for name, schema in SCHEMAS.items():
            with self.subTest(name):
                self.make(name, schema)
                # Who runs composed text may keep its error to himself.
                said = "^" if name == "composed" else REFUSED
                harmful = [sql for sql in STATEMENTS + NAMED if self.calls(name, sql)]
                self.assertTrue(harmful, "SQLite itself would call")
                for when in "loaded first", "loaded last", "attached":
                    for sql in STATEMENTS + NAMED:
                        error = self.in_python(name, sql, when)
                        if sql in harmful:
                            self.assertRegex(error, said, (when, sql))
                        self.assertFalse(os.path.exists("made"), (when, sql))

    def plain(self, file, called):
        """The file in a program whose own functions have those names."""
        plain = sqlite3.connect(file)
        for function in "xp_cmdshell", "sha3_query":
            plain.create_function(function, 1, called, deterministic=True)
        return plain

    def make(self, name, schema):
        plain = self.plain(name, lambda _: None)
        plain.executescript(schema)
        plain.execute(f"INSERT INTO {'b' if name == 'view' else 't'}(a) VALUES(1)")
        plain.commit()
        plain.close()

    def calls(self, name, sql):
        """Whether SQLite makes the file's call for this statement."""
        called = []
        plain = self.plain(shutil.copy(name, "copy"), called.append)
        self.run_in(plain, sql)
        return any("made" in text for text in called)

    def run_in(self, connection, *statements):
        connection.isolation_level = None
        try:
            for sql in statements:
                connection.execute(sql).fetchall()
            return ""
        except sqlite3.Error as error:
            return str(error)
        finally:
            connection.close()

    def in_python(self, name, sql, when):
        shutil.copy(name, "copy")
        connection = sqlite3.connect(":memory:" if when == "attached" else "copy")
        if when == "loaded last":
            connection.execute("SELECT * FROM sqlite_master").fetchall()
        load(connection)
        # As the sqlite3 program has it: runs the text that it is given.
        connection.create_function(
            "sha3_query", 1, lambda text: str(connection.execute(text).fetchall()))
        attach = ["ATTACH 'copy' AS 'other \" one'"] if when == "attached" else []
        return self.run_in(connection, *attach, sql)


    def test_neither_moves_a_procedure_nor_lifts_a_deadline(self):
        with unittest.mock.patch.dict(os.environ, QUOREL_WORKER="1"):
            connection = connect()
        connection.execute("SELECT quorel_worker(true), quorel_deadline(30)")
        for name in "quorel_worker", "quorel_deadline":
            connection.execute(f"CREATE TABLE t(a, CHECK({name}(0) = 0))")
            for sql in "INSERT INTO t VALUES(1)", f"SELECT {name}(1)":
                with self.assertRaisesRegex(sqlite3.Error, f'{name} is refused while table "t"'):
                    connection.execute(sql)
            connection.execute("DROP TABLE t")
        self.assertEqual(connection.execute("SELECT quorel_worker()").fetchone(), (1,))


class Extension(Case):
    def test_works_in_the_sqlite3_program_under_both_entry_names(self):
        for entry in "", "sqlite3_extension_init", "sqlite3_quorelsqlite_init":
            self.assertEqual(
                shell("SELECT xp_sprintf('%s!', 'hi'), xp_cmdshell('exit 3')",
                      "SELECT value FROM xp_scanf('12 abc', '%s %s')", entry=entry),
                ("hi!|3\n12\nabc\n", ""))

    def test_stays_loaded_after_its_connection(self):
        connect().close()
        with open("/proc/self/maps") as maps:
            self.assertIn(EXTENSION, maps.read())

    def test_a_mail_session_is_its_connections_own_and_ends_with_it(self):
        server = self.serve()
        start = f"xp_startsmtp('ann@a.test', '127.0.0.1', {server.port})"
        one, other = connect(), connect()
        for connection, call, status in (
            (one, start, 0), (other, "xp_sendmail('eve@e.test')", 5), (other, "xp_stopsmtp()", 3),
            (one, "xp_sendmail('bob@b.test')", 0), (one, "xp_stopsmtp()", 0),
            (one, "xp_sendmail('eve@e.test')", 5), (one, start, 0),
        ):
            self.assertEqual(connection.execute(f"SELECT {call}").fetchone(), (status,), call)
        self.assertEqual([to for _, to, _ in server.messages], [["bob@b.test"]])
        closing = threading.Thread(target=one.close)
        closing.start()
        closing.join()
        other.close()
        self.assertEqual(server.quits, 2, "a connection without mail says nothing")
        for sql in f"CALL {start}", f"SELECT {start}":
            subprocess.run([QUORELSQL, "-c", sql], check=True, capture_output=True, timeout=60)
        self.assertEqual(server.quits, 4)

    def test_says_what_to_do_without_its_library(self):
        self.assertIn(
            "cannot load /missing.so: cannot open shared object file: No such file or directory; "
            "install libquorel, or build it with tools/demo, then put it beside the extension or name its "
            "file in QUOREL_LIBRARY", shell(QUOREL_LIBRARY="/missing.so")[1])
        moved = shutil.copy(EXTENSION, self.folder)
        for file in LIBRARY, WORKER:
            shutil.copy(file, self.folder)
        self.assertEqual(shell("SELECT xp_cmdshell('exit 6')", extension=moved, QUOREL_LIBRARY=""),
                         ("6\n", ""))

    def test_programs_find_the_library_where_it_is_installed(self):
        os.mkdir(f"{self.folder}/bin")
        program = shutil.copy(QUORELSQL, f"{self.folder}/bin")
        for folder in "lib", "lib64", "lib/x86_64-linux-gnu":
            os.makedirs(f"{self.folder}/{folder}", exist_ok=True)
            files = [shutil.copy(file, f"{self.folder}/{folder}") for file in (LIBRARY, WORKER)]
            done = subprocess.run([program, "-c", "CALL xp_cmdshell('exit 6')"], timeout=60,
                                  capture_output=True, env={**os.environ, "QUOREL_LIBRARY": ""})
            for file in files:
                os.remove(file)
            self.assertIn(b"status 6:", done.stdout, (folder, done.stderr))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
