"""What the outbox's scripts share: its two databases, a mail server and a daemon, each a process that
can be killed and started again."""
import atexit
import collections
import glob
import json
import os
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../postgres"))

QUICK = ("--retry", "0.2,1", "--probe", "0.1,0.5", "--lease", "3")


def until(true, seconds, what):
    """What true() gives once it is not false."""
    end = time.monotonic() + seconds
    while not (result := true()):
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not within {seconds} s")
        time.sleep(0.05)
    return result


class Relay:
    """The mail server of outbox_relay.py, on the same port for all its lives."""

    def __init__(self, folder):
        self.file = os.path.join(folder, "relay.log")
        self.port, self.process = 0, None
        self.start()

    def start(self):
        self.process = subprocess.Popen(
            ["/usr/bin/python3", os.path.join(HERE, "outbox_relay.py"), str(self.port), self.file],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.port = int(self.process.stdout.readline())

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()

    def taken(self):
        """All messages; the last line of one that was killed may be no whole one."""
        with open(self.file) as file:
            return [json.loads(line) for line in file if line.endswith("}\n")]

    def copies(self):
        """How often it took each message for the same recipients, beyond the first time."""
        counts = collections.Counter((m["id"], *m["to"]) for m in self.taken())
        return sum(count - 1 for count in counts.values())


class SqliteBox:
    can_die = False
    mark = "?"

    def __init__(self, folder):
        # A name that means something to everybody but a file system.
        self.where = os.path.join(folder, "out #1 100%.db")

    def name(self, table):
        return "quorel_" + table

    def connect(self):
        connection = sqlite3.connect(self.where, timeout=30, isolation_level=None)
        connection.execute("PRAGMA foreign_keys = ON")
        return connection

    def close(self):
        pass


class PostgresBox:
    """A database of its own in a server that all share."""
    can_die = True
    mark = "%s"
    server = process = None
    count = 0

    def __init__(self, _folder):
        if PostgresBox.server is None:
            from scratchserver import ScratchServer
            PostgresBox.server = ScratchServer(64, fsync="on", shared_buffers="64MB")
            atexit.register(self.end)
            self.server.start()
        PostgresBox.count += 1
        self.database = f"outbox{self.count}"
        connection = self.server.connect()
        connection.cursor().execute("CREATE DATABASE " + self.database)
        connection.close()
        self.where = f"host={self.server.folder} user=postgres dbname={self.database}"

    def name(self, table):
        return "quorel." + table

    def connect(self):
        return self.server.connect(database=self.database)

    def kill(self):
        """Every process of the server at once."""
        for pid in (processes := self.server.processes()):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        if self.process is not None:
            self.process.wait()
        until(lambda: not set(processes) & set(self.server.processes()), 10, "the end of the server")

    def start(self):
        from scratchserver import LIB
        # Nobody has waited for the first postmaster yet, and so its number looks alive.
        for lock in ("data/postmaster.pid", ".s.PGSQL.5432.lock"):
            if os.path.exists(self.server.path(lock)):
                os.unlink(self.server.path(lock))
        account = ["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups"]
        PostgresBox.process = subprocess.Popen(
            [*(account if os.geteuid() == 0 else []), self.server.path(LIB, "bin/postgres"), "-D", "."],
            cwd=self.server.path("data"), stdin=subprocess.DEVNULL, stdout=self.server.log_file,
            stderr=self.server.log_file, env={"LC_ALL": "C", "PATH": "/usr/bin:/bin"})
        until(self._answers, 60, "a server that starts again")

    def _answers(self):
        import psycopg2
        try:
            self.connect().close()
            return True
        except psycopg2.OperationalError:
            return False

    def close(self):
        pass

    def end(self):
        if self.process is not None:
            self.kill()
        self.server.close()


class Outbox:
    """A database with an outbox, a mail server, and what SQL a test needs."""

    def __init__(self, box, program, library):
        self.program, self.library = program, library
        self.scratch = tempfile.TemporaryDirectory(prefix="outbox.")
        self.folder = self.scratch.name
        self.relay = Relay(self.folder)
        self.box = box(self.folder)
        self.run("--install")
        self.sql("INSERT INTO {account} (name, host, port, sender) VALUES ('relay', '127.0.0.1', ?, "
                 "'ann@a.test')", self.relay.port)

    def sql(self, text, *values):
        """The rows of a statement; {table} is the table's name, ? a value."""
        names = {name: self.box.name(name) for name in
                 ("account", "message", "attachment", "delivery", "attempt", "overview")}
        connection = self.box.connect()
        try:
            cursor = connection.cursor()
            cursor.execute(text.format(**names).replace("?", self.box.mark), values)
            return cursor.fetchall() if cursor.description else []
        finally:
            connection.close()

    def queue(self, recipients, subject="Hi", text="text", **fields):
        columns = ", ".join(["recipients", "subject", "text_body", *fields])
        marks = ", ".join("?" * (3 + len(fields)))
        self.sql(f"INSERT INTO {{message}} ({columns}) VALUES ({marks})",
                 recipients, subject, text, *fields.values())

    def queue_many(self, numbers, max_attempts=100):
        rows = ", ".join(f"('to{n}@b.test', 'mail {n}', 'text', {max_attempts})" for n in numbers)
        self.sql("INSERT INTO {message} (recipients, subject, text_body, max_attempts) VALUES " + rows)

    def states(self):
        return dict(self.sql("SELECT state, count(*) FROM {delivery} GROUP BY state"))

    def command(self, *options):
        return [self.program, *options, "--lib", self.library, self.box.where]

    def run(self, *options, status=0):
        """Runs the program to its end; gives what it says."""
        done = subprocess.run(self.command(*options), stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, timeout=120)
        if done.returncode != status:
            raise AssertionError(f"{options}: status {done.returncode}, not {status}: {done.stdout}")
        return done.stdout

    def start(self, *options, **more):
        return subprocess.Popen(self.command(*QUICK, *options), stderr=subprocess.DEVNULL, **more)

    def close(self):
        self.relay.kill()
        self.box.close()
        self.scratch.cleanup()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def children(pid):
    """Of a process, and theirs."""
    found = []
    for path in glob.glob(f"/proc/{pid}/task/*/children"):
        try:
            with open(path) as file:
                found += [int(word) for word in file.read().split()]
        except OSError:
            pass
    return found + [grandchild for child in found for grandchild in children(child)]
