"""The hosts' worker seen from outside: every call ends, and whoever dies takes the rest along.

    worker_test.py QUORELSQL XPCALL LIBRARY WORKER OTHER

OTHER is the library of the other word size, which need not be there.
"""
import concurrent.futures
import fcntl
import os
import pty
import re
import select
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import termios
import threading
import time
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from certificates import Authority  # noqa: E402
from stubborn import STUBBORN  # noqa: E402

QUORELSQL, XPCALL, LIBRARY, WORKER, OTHER = map(os.path.abspath, sys.argv[1:])
DEADLINE = 0.3
SECRET = "open sesame"
ENVIRONMENT = {**os.environ, "QUOREL_LIBRARY": LIBRARY, "ASAN_OPTIONS": "detect_leaks=0"}
# A background job ignores SIGINT, and so would the programs that it starts.
signal.signal(signal.SIGINT, signal.default_int_handler)

ANSWERS = {b"EHLO": b"250-hello\r\n250-STARTTLS\r\n250 AUTH PLAIN\r\n", b"STAR": b"220 go\r\n",
           b"AUTH": b"235 ok\r\n", b"MAIL": b"250 ok\r\n", b"RCPT": b"250 ok\r\n",
           b"DATA": b"354 go on\r\n", b"QUIT": b"221 bye\r\n"}


class Server:
    """Serves one connection until it has given `patience` answers, then does as `manner` says."""

    def __init__(self, patience, certificate=None, manner="silent"):
        self.patience, self.certificate, self.manner = patience, certificate, manner
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.over = threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.over.set()
        self.thread.join()
        self.listener.close()

    def run(self):
        self.listener.settimeout(30)
        try:
            with self.listener.accept()[0] as connection:
                self.talk(connection)
        except (OSError, ValueError):  # the client has gone
            pass

    def answer(self, connection, text):
        """Whether it was given."""
        self.patience -= 1
        if self.patience >= 0:
            connection.sendall(text)
            return True
        while self.manner == "drip" and not self.over.wait(0.05):
            connection.sendall(b"2")
        if self.manner == "half":
            connection.sendall(text[:-2])
        self.over.wait()
        return False

    def talk(self, connection, secured=False):
        connection.settimeout(30)
        alive = secured or self.answer(connection, b"220 ready\r\n")
        lines = connection.makefile("rb", buffering=0)
        while alive and (line := lines.readline()):
            command = line[:4]
            alive = self.answer(connection, ANSWERS[command])
            if alive and command == b"DATA" and self.manner == "deaf":
                self.over.wait()
                return
            if alive and command == b"DATA":
                while lines.readline() not in (b".\r\n", b""):
                    pass
                alive = self.answer(connection, b"250 taken\r\n")
            if alive and command == b"STAR":
                # The handshake is an answer of its own.
                if self.patience == 0:
                    self.over.wait()
                    return
                self.patience -= 1
                context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
                context.load_cert_chain(self.certificate)
                with context.wrap_socket(connection, server_side=True) as secured:
                    return self.talk(secured, True)


def worker_processes(host):
    """Those that ps shows as a host's workers: their numbers and titles."""
    rows = subprocess.run(["ps", "-eo", "pid=,args="], capture_output=True, text=True).stdout
    return re.findall(rf"(\d+) (quorel-worker for \w+\[{host}\].*?) *$", rows, re.M)


def copies(pid, secret):
    """How often a process has it in memory, without what sanitizers keep of theirs."""
    count = 0
    with open(f"/proc/{pid}/maps") as maps, open(f"/proc/{pid}/mem", "rb") as memory:
        for bounds in re.findall(r"^(\w+)-(\w+) rw", maps.read(), re.M):
            begin, end = (int(bound, 16) for bound in bounds)
            if end - begin < 1 << 26:
                memory.seek(begin)
                count += memory.read(end - begin).count(secret)
    return count


# Run in a network of its own, with resolv.conf's stand-in and the program to execute there.
SILENT_NAME_SERVER = """
import fcntl, os, socket, struct, subprocess, sys
SIOCSIFFLAGS, IFF_UP = 0x8914, 1
subprocess.run(["mount", "--bind", sys.argv[1], "/etc/resolv.conf"], check=True)
server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
fcntl.ioctl(server, SIOCSIFFLAGS, struct.pack("16sh22x", b"lo", IFF_UP))
server.bind(("127.0.0.1", 53))
server.set_inheritable(True)
os.execv(sys.argv[2], sys.argv[2:])
"""


class Worker(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        authority = Authority(cls.folder)
        cls.trust, cls.certificate = authority.file, authority.issue("server")
        cls.large = os.path.join(cls.folder, "large")
        with open(cls.large, "wb") as file:
            file.truncate(16 << 20)

    def calls(self, *statements, deadline=DEADLINE):
        """One shell runs them all under the deadline: the seconds it took, and its errors."""
        sql = ".bail off\n.deadline {}\n{}\n.deadline 0\nCALL xp_cmdshell('exit 7');\n".format(
            deadline, "\n".join(statements))
        start = time.monotonic()
        shell = subprocess.Popen([QUORELSQL], text=True, stdin=subprocess.PIPE, cwd=self.folder,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 env=ENVIRONMENT)
        out, err = shell.communicate(sql, timeout=60)
        spent = time.monotonic() - start
        self.assertIn("status 7", out, "the next call works")
        self.assertEqual(worker_processes(shell.pid), [])
        return spent, err

    def converse(self, patience, secure, manner="silent", file="NULL"):
        trust = f", trusted_cert => '{self.trust}', cert_name => 'localhost'" if secure else ""
        with Server(patience, self.certificate, manner) as server:
            # The library's own time-out, of which a secured session has none, is longer.
            return self.calls(
                f"CALL xp_startsmtp('me@a.test', '127.0.0.1', {server.port}, 20, auth_username =>"
                f" 'me', auth_password => '{SECRET}'{trust});",
                *2 * [f"CALL xp_sendmail('you@b.test', 'Hi', 'text', include_file => {file});"],
                "CALL xp_stopsmtp();")

    def check_converse(self, row):
        patience, secure, manner, file = row
        spent, errors = self.converse(*row)
        # Every call but the one that is ended is over at once.
        self.assertLess(spent, DEADLINE + 1, row)
        self.assertRegex(errors, r"xp_\w+ took longer than 0.3 s and was ended", row)
        self.assertEqual(errors.count("took longer"), 1, row)
        if "xp_sendmail" in errors or "xp_stopsmtp" in errors:
            self.assertIn("; its mail session is closed", errors, row)

    def test_ends_every_dialogue_that_falls_silent(self):
        large = f"'{self.large}'"
        rows = [(n, False, "silent", "NULL") for n in range(12)]
        rows += [(n, True, "silent", "NULL") for n in range(15)]
        rows += [(n, False, "half", "NULL") for n in (0, 8)]
        for secure in False, True:
            rows += [(0, secure, "drip", "NULL"), (99, secure, "deaf", large)]
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            list(pool.map(self.check_converse, rows))

    def test_knows_its_sessions_apart(self):
        with Server(99) as first, Server(99) as second:
            starts = [f"CALL xp_startsmtp('me@a.test', '127.0.0.1', {port}, cid => {port});"
                      for port in (first.port, second.port)]
            _, errors = self.calls(*starts, f"CALL xp_stopsmtp(cid => {second.port});",
                                   "CALL xp_read_file('/dev/zero');")
            self.assertIn("ended; the connection's mail session is closed", errors)

    def test_ends_what_nobody_reads(self):
        for deadline, end in ("0.3", "took longer than 0.3 s and was ended"), ("60", "was cancelled"):
            start = time.monotonic()
            reader, writer = os.pipe()
            with subprocess.Popen([XPCALL, "--deadline", deadline, "xp_read_file", self.large], text=True,
                                  stdout=writer, stderr=subprocess.PIPE, env=ENVIRONMENT) as host:
                os.close(writer)
                select.select([reader], [], [])
                if deadline == "60":
                    host.send_signal(signal.SIGINT)
                self.assertEqual(host.communicate(timeout=60)[1], f"xpcall: xp_read_file {end}\n")
                self.assertEqual(host.returncode, 1)
            os.close(reader)
            self.assertLess(time.monotonic() - start, 1.3)

    def test_waits_for_no_stopped_display(self):
        """Ctrl-S stops the terminal, and not what runs."""
        user, terminal = pty.openpty()
        shell = subprocess.Popen([QUORELSQL], text=True, stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=terminal,
                                 env={**ENVIRONMENT, "TERM": "xterm"}, preexec_fn=lambda: (
                                     os.setsid(), fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)))
        self.addCleanup(shell.communicate)
        self.addCleanup(os.write, user, b"\x11")
        shell.stdin.write("CALL xp_cmdshell('sleep 1; exit 7');\n")
        shell.stdin.flush()
        os.read(user, 1)
        os.write(user, b"\x13")
        self.assertTrue(select.select([shell.stdout], [], [], 10)[0])

    def test_ends_a_search_for_a_name(self):
        """In a network of its own, whose name server listens and says nothing."""
        config = os.path.join(self.folder, "resolv.conf")
        with open(config, "w") as file:
            file.write("nameserver 127.0.0.1\noptions timeout:20\n")
        start = time.monotonic()
        done = subprocess.run(["unshare", "-rmn", "/usr/bin/python3", "-c", SILENT_NAME_SERVER, config,
                               XPCALL, "--deadline", str(DEADLINE), "xp_startsmtp", "me@a.test",
                               "mail.nowhere.test"],
                              capture_output=True, text=True, env=ENVIRONMENT, timeout=60)
        if "unshare" in done.stderr or "mount" in done.stderr:
            self.skipTest(done.stderr)
        self.assertEqual(done.stderr, "xpcall: xp_startsmtp took longer than 0.3 s and was ended\n")
        self.assertLess(time.monotonic() - start, DEADLINE + 1.5)

    def test_whoever_dies_takes_the_rest_along(self):
        for victim, number in (("host", 9), ("guard", 9), ("guard", 11), ("server", 9), ("server", 11)):
            host = subprocess.Popen([XPCALL, "--worker", "xp_cmdshell", STUBBORN], text=True,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=ENVIRONMENT)
            self.assertRegex(host.stdout.readline(), "^pid")
            (guard, _), (server, title) = sorted(worker_processes(host.pid), key=lambda row: len(row[1]))
            self.assertEqual(title, f"quorel-worker for xpcall[{host.pid}]: xp_cmdshell")
            os.kill({"host": host.pid, "guard": int(guard), "server": int(server)}[victim], number)
            start = time.monotonic()
            # The end of its output is the end of all that had it.
            _, errors = host.communicate(timeout=60)
            self.assertLess(time.monotonic() - start, 1.5, (victim, number))
            if victim != "host":
                self.assertRegex(errors, "^xpcall: xp_cmdshell: its worker was ended by SIG"
                                 + ("KILL" if number == 9 else "SEGV"))
                self.assertEqual(host.returncode, 1)

    def test_shows_no_argument_to_others(self):
        with open(os.path.join(self.folder, "secret"), "w") as file:
            file.write(SECRET)
        with Server(0) as server:
            host = subprocess.Popen([XPCALL, "--deadline", "2", "xp_startsmtp", "me@a.test",
                                     "127.0.0.1", f"int:{server.port}", "null", "null", "me", "@secret"],
                                    cwd=self.folder, env=ENVIRONMENT, stderr=subprocess.DEVNULL)
            while not any(title.endswith(": xp_startsmtp") for _, title in worker_processes(host.pid)):
                self.assertIsNone(host.poll())
                time.sleep(0.01)
            for pid, _ in worker_processes(host.pid):
                for name in "cmdline", "environ", "comm":
                    with open(f"/proc/{pid}/{name}", "rb") as file:
                        self.assertNotIn(SECRET.encode(), file.read())
            host.wait(timeout=60)

    def test_keeps_no_password(self):
        with open(os.path.join(self.folder, "secret"), "w") as file:
            file.write(SECRET)
        with Server(3) as server:
            host = subprocess.Popen(
                [XPCALL, "--worker", "--calls", "xp_startsmtp", "me@a.test", "127.0.0.1",
                 f"int:{server.port}", "null", "null", "me", "@secret", "+", "xp_cmdshell", "echo; read x"],
                cwd=self.folder, env=ENVIRONMENT, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            self.assertEqual(host.stdout.readline(), b"status 0: the session is open\n")
            self.assertEqual(host.stdout.readline(), b"\n")
            found = [copies(pid, SECRET.encode()) for pid, _ in worker_processes(host.pid)]
            host.communicate(b"\n", timeout=60)
            self.assertEqual({*found}, {0})

    def test_is_not_for_people(self):
        help_text = subprocess.run([WORKER, "--help"], capture_output=True, text=True)
        self.assertIn("Hosts start it, people do not", " ".join(help_text.stdout.split()))
        alone = subprocess.run([WORKER], capture_output=True, text=True)
        self.assertEqual((alone.returncode, alone.stderr), (
            2, "quorel-worker is started by its hosts; try quorel-worker --help\n"))

    def test_may_have_the_other_word_size(self):
        # A build from before there was a worker is as good as none.
        if not os.path.exists(os.path.join(os.path.dirname(OTHER), "../host/worker/quorel-worker")):
            self.skipTest("the other word size is not built")
        done = subprocess.run([XPCALL, "--worker", "--lib", OTHER, "xp_cmdshell",
                               "readlink /proc/$PPID/exe"], capture_output=True, text=True,
                              env=ENVIRONMENT, timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertNotEqual(done.stdout.split("\n")[0], os.path.realpath(WORKER))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
