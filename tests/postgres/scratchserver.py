"""A PostgreSQL server of either word size in a folder of its own, which goes when the script does.

Nobody but the script's account and the server's reaches it: its socket lies in that folder. The server
refuses to run as root, so root's servers run as `postgres`; that account needs no way into the checkout,
since all that the server loads is copied. PostgreSQL finds its folders as seen from its own program, so
that an extension is installed here without touching the machine's server.
"""
import os
import select
import shutil
import signal
import subprocess
import tempfile
import time

import psycopg2

CHECKOUT = os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
LIB, SHARE = "usr/lib/postgresql/15", "usr/share/postgresql/15"
PARTS = {64: (LIB, SHARE), 32: (LIB, SHARE, "usr/lib/i386-linux-gnu", "lib/i386-linux-gnu")}
UNPACKED = {64: "/", 32: os.path.join(CHECKOUT, "build/postgres-i386")}
SETTINGS = {"listen_addresses": "", "fsync": "off", "jit": "off",
            "dynamic_shared_memory_type": "mmap", "shared_buffers": "16MB", "max_connections": "80",
            "autovacuum": "off", "log_line_prefix": "%p %e "}
# The server's parent, which is there before the folder has anything in it. It ends when its standard
# input does, however the script ends, and leaves nothing; an immediate shutdown waits for no backend. No
# child of the script's, since CTest kills those as well. Its standard output ends with it.
GUARD = """
cd "$1" && shift && read -r _ &&
    "$@" initdb -D data -U postgres -A trust -E UTF8 --locale=C --no-sync >&2 &&
    cat settings >>data/postgresql.conf && {
        (cd data && exec "$@" postgres -D . >&2) & server=$!
        read -r _
        kill -QUIT $server 2>/dev/null
        wait $server
    }
rm -rf "$PWD"
"""


def until(true, seconds, what):
    """What true() gives once it is not false."""
    end = time.monotonic() + seconds
    while not (result := true()):
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not within {seconds} s")
        time.sleep(0.01)
    return result


def status(process):
    """A process's state and its parent; neither where it is no more."""
    try:
        with open(f"/proc/{process}/stat") as file:
            state, parent, *_ = file.read().rpartition(")")[2].split()
            return state, int(parent)
    except OSError:
        return "", 0


class ScratchServer:
    """folder: its root; files: a folder for what SQL reads and writes; pid: the postmaster's."""

    def __init__(self, bits, **settings):
        self.bits, self.pid = bits, None
        self.log_file = tempfile.TemporaryFile(dir="/tmp")
        os.umask(0o022)  # the server reads what is copied
        # Not where TMPDIR says: a socket's path takes 107 bytes, and the account must get there.
        self.folder = tempfile.mkdtemp(prefix="pg.", dir="/tmp")
        environment = {"PATH": self.path(LIB, "bin") + ":/usr/bin:/bin", "LC_ALL": "C"}
        if bits == 32:
            environment["LD_LIBRARY_PATH"] = ":".join(self.path(part) for part in PARTS[32][2:])
        as_account = ["env"]
        if os.geteuid() == 0:
            as_account = ["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups"]
        commands, self.commands = os.pipe()
        self.end, end = os.pipe()
        subprocess.run(["setsid", "--fork", "/bin/sh", "-c", GUARD, "sh", self.folder, *as_account],
                       stdin=commands, stdout=end, stderr=self.log_file, env=environment, check=True)
        os.close(commands)
        os.close(end)
        self.files = self.path("files")
        os.mkdir(self.files)
        for part in PARTS[bits]:
            shutil.copytree(os.path.join(UNPACKED[bits], part), self.path(part), symlinks=True,
                            ignore=shutil.ignore_patterns("bitcode", "pgxs", "man", "gconv"))
        self.settings = SETTINGS | {"unix_socket_directories": self.folder} | settings

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def install(self, build, below=""):
        """Installs a build folder's extension as if `below` were the machine's root; gives the path
        of the library that belongs to it."""
        root = self.path(below)
        subprocess.run(["cmake", "--install", build, "--component", "postgres"], check=True,
                       stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": root})
        return os.path.join(root, LIB, "lib/libquorel_static.so")

    def start(self):
        with open(self.path("settings"), "w") as file:
            file.writelines(f"{name} = '{value}'\n" for name, value in self.settings.items())
        if os.geteuid() == 0:
            for name in (self.folder, self.files):
                shutil.chown(name, "postgres", "postgres")
        os.write(self.commands, b"start\n")
        until(self._ready, 60, "a server that starts")
        return self

    def _ready(self):
        if self._has_ended(0):
            raise RuntimeError("the server did not start:\n" + self.log())
        try:
            with open(self.path("data/postmaster.pid")) as file:
                lines = file.read().split("\n")
        except FileNotFoundError:
            return False
        if len(lines) < 8 or lines[7].strip() != "ready":
            return False
        self.pid = int(lines[0])
        return True

    def running(self):
        """Whether the postmaster is; the guard does not wait for it before the end."""
        return status(self.pid)[0] not in ("", "Z")

    def connect(self, user="postgres", database="postgres"):
        connection = psycopg2.connect(host=self.folder, user=user, dbname=database)
        connection.autocommit = True
        return connection

    def log(self):
        return os.pread(self.log_file.fileno(), 1 << 26, 0).decode(errors="replace")

    def processes(self):
        """{process: its program} of the server and all that it has started."""
        found = {}
        for process in filter(str.isdigit, os.listdir("/proc")):
            try:
                if os.readlink(f"/proc/{process}/cwd").startswith(self.path("data")):
                    found[int(process)] = os.readlink(f"/proc/{process}/exe")
            except OSError:  # it has ended, or is somebody else's
                pass
        return found

    def started(self, parent=None):
        """The processes that backends have started, and what those have; or the descendants of one
        process, from the top down."""
        started = [process for process, program in self.processes().items()
                   if program != self.path(LIB, "bin/postgres")]
        if parent is None:
            return started
        found = [parent]
        for process in found:
            found += [child for child in started if status(child)[1] == process]
        return found[1:]

    def stop(self):
        """A fast shutdown; gives the seconds it took."""
        begin = time.monotonic()
        os.kill(self.pid, signal.SIGINT)
        until(lambda: not self.running(), 60, "a fast shutdown")
        return time.monotonic() - begin

    def _has_ended(self, seconds):
        return bool(select.select([self.end], [], [], seconds)[0])

    def close(self):
        os.close(self.commands)
        if not self._has_ended(60):
            raise TimeoutError("the server does not end")
        os.close(self.end)
        self.log_file.close()

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.close()


def server_with_extension(bits, build, product, **settings):
    """Its module comes from the build folder `build`, the library from `product`: a worker loads it for
    a 64-bit server, the backends themselves do in a 32-bit one."""
    server = ScratchServer(bits)
    library = server.install(build)
    if product != build:
        library = server.install(product, "product")
    server.settings |= {"quorel.library": library, "quorel.worker": "on" if bits == 64 else "off"} | settings
    return server
