"""The loadable extension in programs that know nothing of it: sqlite3 and Python.

    extension_test.py EXTENSION LIBRARY
"""
import os
import select
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import threading
import unittest

from mailserver import Server
from stubborn import STUBBORN

EXTENSION, LIBRARY = (os.path.abspath(path) for path in sys.argv[1:3])
os.environ["QUOREL_LIBRARY"] = LIBRARY


def connect(database=":memory:"):
    connection = sqlite3.connect(database, check_same_thread=False)
    connection.enable_load_extension(True)
    connection.load_extension(EXTENSION)
    return connection


def shell(*sql, extension=EXTENSION, entry="", **environment):
    """Standard output and error of the sqlite3 program."""
    result = subprocess.run(["sqlite3", "-batch", ":memory:", f".load {extension} {entry}", *sql],
                            capture_output=True, text=True, timeout=60,
                            env={**os.environ, **environment})
    return result.stdout, result.stderr


class Extension(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.file = os.path.join(folder.name, "file")
        self.folder = folder.name

    def test_works_in_the_sqlite3_program_under_both_entry_names(self):
        for entry in "", "sqlite3_extension_init", "sqlite3_quorelsqlite_init":
            self.assertEqual(
                shell("SELECT xp_sprintf('%s!', 'hi'), xp_cmdshell('exit 3')",
                      "SELECT value FROM xp_scanf('12 abc', '%s %s')", entry=entry),
                ("hi!|3\n12\nabc\n", ""))

    def test_is_out_of_reach_of_a_database_file(self):
        database = os.path.join(self.folder, "hostile.db")
        with sqlite3.connect(database) as plain:
            plain.executescript("""
                CREATE TABLE t(a);
                CREATE VIEW calls AS SELECT xp_cmdshell('touch made');
                CREATE VIEW scans AS SELECT * FROM xp_scanf('a', '%s');
                CREATE TRIGGER fires AFTER INSERT ON t BEGIN SELECT xp_cmdshell('touch made'); END;""")
        connection = connect(database)
        connection.execute("PRAGMA trusted_schema = ON")
        for sql in "SELECT * FROM calls", "SELECT * FROM scans", "INSERT INTO t VALUES(1)":
            with self.assertRaisesRegex(sqlite3.OperationalError, "^unsafe use of"):
                connection.execute(sql)

    def test_stays_loaded_after_its_connection(self):
        connect().close()
        with open("/proc/self/maps") as maps:
            self.assertIn(EXTENSION, maps.read())

    def test_interrupt_ends_a_command_and_all_that_it_started(self):
        connection = connect()
        out, command_out = os.pipe()
        self.addCleanup(os.close, out)
        os.set_inheritable(command_out, True)

        def interrupt_when_running():
            self.assertIn(b"pid", os.read(out, 100))
            connection.interrupt()

        thread = threading.Thread(target=interrupt_when_running)
        thread.start()
        with self.assertRaisesRegex(sqlite3.OperationalError, "^interrupted$"):
            connection.execute("SELECT xp_cmdshell(?)", (f"exec >&{command_out}; {STUBBORN}",))
        thread.join()
        os.close(command_out)
        self.assertTrue(select.select([out], [], [], 60)[0], "none of them lives on")
        self.assertEqual(os.read(out, 1), b"")
        self.assertEqual(connection.execute("SELECT xp_cmdshell('exit 4')").fetchone(), (4,))
        self.assertEqual(len(os.listdir("/proc/self/task")), 1, "no thread is left behind")

    def test_a_mail_session_is_its_connections_own(self):
        server = Server()
        self.addCleanup(server.close)
        one, other = connect(), connect()
        for connection, call, status in (
            (one, f"xp_startsmtp('ann@a.test', '127.0.0.1', {server.port})", 0),
            (other, "xp_sendmail('eve@e.test')", 5),
            (other, "xp_stopsmtp()", 3),
            (one, "xp_sendmail('bob@b.test')", 0),
            (one, "xp_stopsmtp()", 0),
            (one, "xp_sendmail('eve@e.test')", 5),
        ):
            self.assertEqual(connection.execute(f"SELECT {call}").fetchone(), (status,), call)
        self.assertEqual([to for _, to, _ in server.messages], [["bob@b.test"]])

    def test_says_what_to_do_without_its_library(self):
        self.assertIn(
            "cannot load /missing.so: cannot open shared object file: No such file or directory; "
            "build it with tools/demo, then put it beside the extension or name its file in "
            "QUOREL_LIBRARY", shell(QUOREL_LIBRARY="/missing.so")[1])
        moved = shutil.copy(EXTENSION, self.folder)
        self.assertIn(f"cannot load {self.folder}/libquorel_static.so", shell(
            extension=moved, QUOREL_LIBRARY="")[1])
        shutil.copy(LIBRARY, self.folder)
        self.assertEqual(shell("SELECT xp_cmdshell('exit 6')", extension=moved, QUOREL_LIBRARY=""),
                         ("6\n", ""))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
