"""The extension in a PostgreSQL server.

    postgres_test.py BITS BUILD PRODUCT [TEST…]

BITS is the server's word size, BUILD the build folder that its module comes from, and PRODUCT the one of
the library: a worker loads it in a 64-bit server, the backend itself in a 32-bit one.
"""
import concurrent.futures
import os
import signal
import socket
import subprocess
import sys
import time
import unittest

import psycopg2

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../e2e"))
from mailserver import Server  # noqa: E402
from scratchserver import SHARE, server_with_extension, until  # noqa: E402
from stubborn import STUBBORN  # noqa: E402

BITS, BUILD, PRODUCT = int(sys.argv[1]), *map(os.path.abspath, sys.argv[2:4])
HERE = os.path.dirname(os.path.abspath(__file__))
TOOLS = "/usr/lib/postgresql/15/bin"  # the machine's own, for servers of either word size
WORKER = BITS == 64
FAST = 1.0  # how long a call may go on that is to end


def setUpModule():
    global SERVER, POOL
    POOL = concurrent.futures.ThreadPoolExecutor()
    unittest.addModuleCleanup(POOL.shutdown)  # after the server's end, which ends all calls
    SERVER = server_with_extension(BITS, BUILD, PRODUCT)
    unittest.addModuleCleanup(SERVER.close)
    SERVER.start()


class Session:
    """A connection, and the number of its backend."""

    def __init__(self, database="postgres", user="postgres", server=None):
        self.connection = (server or SERVER).connect(user, database)
        self.pid = self.connection.info.backend_pid

    def run(self, sql):
        """The first row; or the SQLSTATE of the error, and None where the connection is gone."""
        try:
            with self.connection.cursor() as cursor:
                cursor.execute(sql)
                return cursor.fetchone() if cursor.description else ()
        except psycopg2.Error as error:
            return error.pgcode

    def begin(self, sql):
        """Gives run()'s result later; the call is under way."""
        result = POOL.submit(self.run, sql)
        until(lambda: result.done() or self.waits(), 10, sql)
        return result

    def waits(self):
        watcher = Session()
        [event] = watcher.run(f"SELECT wait_event_type FROM pg_stat_activity WHERE pid = {self.pid}")
        watcher.close()
        return event == "Extension"

    def close(self):
        self.connection.close()


class PostgresTest(unittest.TestCase):
    def setUp(self):
        self.root = Session()
        self.name = self._testMethodName[:60]
        self.root.run(f"CREATE DATABASE {self.name}")
        self.addCleanup(self.finish)
        self.session = self.open()
        self.session.run("CREATE EXTENSION quorel")

    def finish(self):
        """After all other sessions."""
        until(lambda: not SERVER.started(), 5, "the end of what was started")
        self.root.run(f"DROP DATABASE {self.name}")
        self.root.close()
        self.assertNotRegex(SERVER.log(), "terminated by signal|reinitializing|PANIC")

    def open(self, user="postgres"):
        session = Session(self.name, user)
        self.addCleanup(session.close)
        return session

    def file(self, name):
        return os.path.join(SERVER.files, name)

    def silent_server(self):
        server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(server.close)
        return server.getsockname()[1]

    def waits(self):
        """Calls that come to no end, and can be brought to one."""
        # The shell of the second goes when its process group is signalled, what it began does not.
        commands = ["SELECT xp_cmdshell('" + STUBBORN.replace("'", "''") + "')",
                    "SELECT xp_cmdshell('sleep 600 & sleep 600')"]
        if not WORKER:
            return commands
        fifo = self.file(self.name)
        if not os.path.exists(fifo):
            os.mkfifo(fifo, 0o666)
            os.chmod(fifo, 0o666)
        return [*commands,
                f"SELECT xp_startsmtp('a@a.test', '127.0.0.1', {self.silent_server()})",
                f"SELECT xp_read_file('{fifo}')"]

    def test_regress(self):
        output = SERVER.path("regress")
        result = subprocess.run(
            [f"{TOOLS}/../lib/pgxs/src/test/regress/pg_regress", f"--inputdir={HERE}",
             f"--outputdir={output}", f"--bindir={TOOLS}", f"--host={SERVER.folder}",
             "--user=postgres", "--dbname=regression", "--encoding=UTF8", "--no-locale", "quorel"],
            env={**os.environ, "QUOREL_FILES": SERVER.files}, capture_output=True, text=True)
        if result.returncode != 0:
            subprocess.run(["cat", os.path.join(output, "regression.diffs")])
            self.fail(result.stdout + result.stderr)

    def test_a_cancelled_call_ends(self):
        def terminate(session):
            self.root.run(f"SELECT pg_terminate_backend({session.pid})")

        def cancel(session):
            self.root.run(f"SELECT pg_cancel_backend({session.pid})")

        def leave(session):
            with socket.socket(fileno=os.dup(session.connection.fileno())) as client:
                client.shutdown(socket.SHUT_RDWR)

        def time_out(session):
            time.sleep(max(0, session.ends - time.monotonic()))

        for sql in self.waits():
            for end, expected in ((cancel, "57014"), (time_out, "57014"), (terminate, None), (leave, None)):
                with self.subTest(sql=sql, end=end.__name__):
                    session = self.open()
                    if end is time_out:
                        session.run("SET statement_timeout = '500ms'")
                        session.ends = time.monotonic() + 0.5
                    result = session.begin(sql)
                    begun = time.monotonic()
                    end(session)
                    self.assertEqual(expected, result.result(10))
                    if expected is None:
                        until(lambda: not self.root.run("SELECT FROM pg_stat_activity WHERE pid ="
                                                        f" {session.pid}"), FAST, "the backend's end")
                    self.assertLess(time.monotonic() - begun, FAST)
                    if expected is not None:
                        until(lambda: not any(program.endswith("/sleep") for program in
                                              SERVER.processes().values()), FAST, "the command's end")
                        self.assertEqual((3,), session.run("SELECT xp_cmdshell('exit 3')"))
                    session.close()
                    until(lambda: not SERVER.started(), FAST, "the end of what was started")

    def test_a_fast_shutdown_ends_all_calls(self):
        with server_with_extension(BITS, BUILD, PRODUCT) as server:
            Session(server=server).run("CREATE EXTENSION quorel")
            results = [POOL.submit(Session(server=server).run, sql) for sql in self.waits()]
            watcher = Session(server=server)
            until(lambda: watcher.run("SELECT count(*) FROM pg_stat_activity WHERE wait_event_type ="
                                      " 'Extension'") == (len(results),), 10, "all calls")
            self.assertLess(server.stop(), FAST)
            self.assertEqual([None] * len(results), [result.result(10) for result in results])
            self.assertEqual([], server.started())

    @unittest.skipUnless(WORKER, "for workers")
    def test_other_sessions_need_not_wait_for_a_call(self):
        call = self.session.begin("SELECT xp_cmdshell('sleep 60')")
        self.root.run("SET statement_timeout = '5s'")
        self.assertEqual((), self.root.run("CREATE DATABASE other"))
        self.assertEqual((), self.root.run("DROP DATABASE other"))
        self.root.run(f"SELECT pg_cancel_backend({self.session.pid})")
        self.assertEqual("57014", call.result(5))

    @unittest.skipUnless(WORKER, "for workers")
    def test_a_worker_that_dies_is_an_error_of_its_session(self):
        other = self.open()
        busy = other.begin("SELECT xp_cmdshell('sleep 2')")
        for which in (0, 1):  # the guard, and below it the process that makes the calls
            call = self.session.begin("SELECT xp_cmdshell('sleep 60')")
            until(lambda: len(SERVER.started(self.session.pid)) > 2, 5, "the command")
            os.kill(SERVER.started(self.session.pid)[which], signal.SIGSEGV)
            self.assertEqual("38000", call.result(5))
            self.assertEqual((3,), self.session.run("SELECT xp_cmdshell('exit 3')"))
        self.assertEqual((0,), busy.result(10))

    def test_a_hostile_schema_calls_nothing(self):
        self.root.run("CREATE ROLE mallory LOGIN; CREATE ROLE operator LOGIN IN ROLE"
                      " pg_execute_server_program, pg_read_all_data, pg_write_all_data")
        self.addCleanup(self.session.run, "DROP OWNED BY mallory; DROP ROLE mallory, operator")
        self.session.run("GRANT CREATE ON SCHEMA public TO mallory; CREATE OPERATOR !@ (FUNCTION = xp_cmdshell,"
                         " LEFTARG = text, RIGHTARG = text)")
        mallory = self.open("mallory")
        made = self.file("made")
        call = f"xp_cmdshell('touch {made}')"
        table = "CREATE TABLE t(a int); INSERT INTO t VALUES (1);"
        function = ("CREATE FUNCTION f() RETURNS {} LANGUAGE plpgsql {} AS $$BEGIN PERFORM " + call + ";"
                    " RETURN {}; END$$;")
        insert, everybody = "INSERT INTO t VALUES (1)", ("mallory", "operator", "postgres")
        for name, users, schema, sql in (
                ("view", everybody, f"CREATE VIEW t AS SELECT {call}", "SELECT * FROM t"),
                ("operator", everybody, f"CREATE VIEW t AS SELECT 'touch {made}' !@ NULL", "SELECT * FROM t"),
                ("rule", everybody, f"{table} CREATE RULE r AS ON INSERT TO t DO ALSO SELECT {call}", insert),
                ("check", everybody, f"CREATE TABLE t(a int CHECK ({call} >= 0))", insert),
                ("default", everybody, f"CREATE TABLE t(a int, b int DEFAULT {call})", insert),
                ("domain", everybody, f"CREATE DOMAIN t AS int CHECK ({call} >= 0)", "SELECT 1::t"),
                ("policy", everybody[:2], f"{table} ALTER TABLE t ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL"
                 f" SECURITY; CREATE POLICY p ON t USING ({call} >= 0)", "SELECT * FROM t"),
                ("body", everybody, f"CREATE FUNCTION f() RETURNS int RETURN {call}", "SELECT f()"),
                ("definer", everybody, function.format("int", "SECURITY DEFINER", 1), "SELECT f()"),
                # These call with the rights of whoever calls them, as all functions of the server do.
                ("function", everybody[:1], function.format("int", "", 1), "SELECT f()"),
                ("trigger", everybody[:1], function.format("trigger", "", "NEW") + table + "CREATE TRIGGER r"
                 " BEFORE INSERT ON t FOR EACH ROW EXECUTE FUNCTION f()", insert)):
            for user in users:
                with self.subTest(name=name, user=user):
                    self.assertEqual((), mallory.run(schema))
                    self.assertEqual("42501", self.open(user).run(sql))
                    called = os.path.exists(made)
                    if called:
                        os.remove(made)
                    mallory.run("DROP OWNED BY mallory")
                    self.session.run("GRANT CREATE ON SCHEMA public TO mallory")
                    self.assertFalse(called)

    def test_dump_restore_update_drop(self):
        session = self.session
        counts = ", ".join(f"(SELECT count(*) FROM pg_{name})" for name in
                           ("proc", "type", "init_privs", "depend", "description"))
        session.run("DROP EXTENSION quorel")
        before = session.run(f"SELECT {counts}")
        session.run("CREATE ROLE postman; CREATE EXTENSION quorel; CREATE TABLE t AS SELECT"
                    " xp_sprintf('%s', 'kept'); GRANT EXECUTE ON FUNCTION xp_stopsmtp TO postman")
        options = ["-h", SERVER.folder, "-U", "postgres", "-d", self.name]
        dump = subprocess.run([f"{TOOLS}/pg_dump", *options, "-Fc"], check=True, capture_output=True)
        session.run("DROP TABLE t; DROP EXTENSION quorel")
        self.assertEqual(before, session.run(f"SELECT {counts}"))
        subprocess.run([f"{TOOLS}/pg_restore", *options, "--exit-on-error"], input=dump.stdout, check=True)
        self.assertEqual(("kept", True), session.run(
            "SELECT t.*, has_function_privilege('postman', 'xp_stopsmtp()', 'EXECUTE') FROM t"))
        with open(SERVER.path(SHARE, "extension/quorel--1.0--next.sql"), "w") as file:
            file.write("COMMENT ON FUNCTION xp_stopsmtp() IS 'next';")
        session.run("ALTER EXTENSION quorel UPDATE TO 'next'")
        self.assertEqual(("next",), session.run(
            "SELECT extversion FROM pg_extension WHERE extname = 'quorel'"))
        session.run("DROP EXTENSION quorel; DROP OWNED BY postman; DROP ROLE postman")

    def test_a_mail_session_is_the_backends(self):
        mail = Server()
        self.addCleanup(mail.close)
        other = self.open()
        self.assertEqual((0,), self.session.run(f"SELECT xp_startsmtp('a@a.test', '127.0.0.1', {mail.port})"))
        self.assertEqual((5,), other.run("SELECT xp_sendmail('b@b.test', message => 'text')"))
        self.session.run("BEGIN")
        self.assertEqual((0,), self.session.run("SELECT xp_sendmail('b@b.test', 'Grüße', message => 'text')"))
        self.session.run("ROLLBACK")
        self.assertEqual(1, len(mail.messages))
        self.assertEqual(0, mail.quits)
        self.session.close()
        until(lambda: mail.quits == 1, 5, "QUIT")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[4:])
