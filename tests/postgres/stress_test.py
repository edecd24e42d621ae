"""Many backends at once, mail servers that misbehave, and random cancels.

    stress_test.py BITS BUILD PRODUCT [BACKENDS CALLS]

BITS, BUILD and PRODUCT are postgres_test.py's. Each backend makes CALLS mixed calls, 100 unless told.
Prints what became of them; fails when a backend dies that was not told to, the server starts anew, a
process or a descriptor is left, or the memory of a backend grows.
"""
import asyncio
import collections
import os
import random
import sys
import threading
import time

import psycopg2

from scratchserver import server_with_extension, until

BITS, BUILD, PRODUCT = int(sys.argv[1]), *map(os.path.abspath, sys.argv[2:4])
BACKENDS, CALLS = map(int, sys.argv[4:6] or (12, 100))
SEED = 1
GROWTH = 1024  # KiB that a backend may have more at the end than after a quarter of its calls
CANCELLED = "57014"


class HostileServer:
    """A mail server for many connections: each is served well until its patience is over, and then in
    some other way."""

    def __init__(self):
        self.random = random.Random(SEED)
        self.loop = asyncio.new_event_loop()
        server = self.loop.run_until_complete(asyncio.start_server(self.serve, "127.0.0.1", 0))
        self.port = server.sockets[0].getsockname()[1]
        threading.Thread(target=self.loop.run_forever, daemon=True).start()

    async def serve(self, reader, writer):
        try:
            await self.talk(reader, writer)
        except (OSError, ValueError):  # the client has gone, or its line is too long
            pass
        finally:
            writer.transport.abort()

    async def talk(self, reader, writer):
        patience = self.random.choice((0, 1, 2, 3, 4, 5, 6, 99, 99))
        message = False
        writer.write(b"220 ready\r\n")
        while line := await reader.readline():
            if message and line != b".\r\n":
                continue
            message = line.startswith(b"DATA")
            patience -= 1
            if patience < 0:
                return await self.misbehave(writer)
            writer.write(b"354 go on\r\n" if message else b"250 ok\r\n")
            await writer.drain()

    async def misbehave(self, writer):
        manner = self.random.randrange(5)
        if manner == 0:  # silence, which a time-out or a cancel ends
            await asyncio.sleep(5)
        elif manner == 1:
            writer.write(self.random.randbytes(300) + b"\r\n")
        elif manner == 2:
            writer.write(b"250-more\r\n" * 50000)
        elif manner == 3:
            for _ in range(100):
                writer.write(b"2")
                await writer.drain()
                await asyncio.sleep(0.01)
        await writer.drain()


class Backend(threading.Thread):
    """One connection's calls. It makes a new one where its backend was told to end."""

    def __init__(self, server, mail, number):
        super().__init__()
        self.server, self.random, self.file = server, random.Random(number), f"{server.files}/{number}"
        self.told = set()
        self.mail = f"SELECT xp_startsmtp('a@a.test', '127.0.0.1', {mail.port}, 1)"
        self.outcomes = collections.Counter()
        self.faults = []
        self.growth = None
        self.connection = None
        self.connect()

    def connect(self):
        self.connection = self.server.connect()
        self.pid = self.connection.info.backend_pid
        self.first = None

    def run(self):
        try:
            for count in range(CALLS):
                self.call(*self.choose())
                if self.first is None and count >= CALLS // 4:
                    self.first = self.weigh()
            last = self.weigh()
            if self.first is not None:
                self.growth = last[0] - self.first[0]
                if last[1] > self.first[1]:
                    self.faults.append(f"{last[1]} descriptors, not {self.first[1]}")
        except BaseException as error:
            self.faults.append(repr(error))
        self.connection.close()

    def choose(self):
        """A call and the values it may give, None for any."""
        size = self.random.choice((0, 1, 1000, 32768, 200000))
        return self.random.choice((
            ("SELECT length(xp_read_file('/etc/services')) > 1000", (True,)),
            (f"SELECT xp_write_file('{self.file}', repeat('x', {size}))", (0, 1)),
            (f"SELECT xp_read_file('{self.file}') IS NULL", None),
            ("SELECT xp_sprintf('%s-%s', 'a', 'b')", ("a-b",)),
            ("SELECT xp_scanf('12 apples', '%s %s')", (["12", "apples"],)),
            ("SELECT xp_cmdshell('exit 3')", (3,)),
            ("SELECT xp_cmdshell('sleep 0.1')", (0,)),
            ("SELECT xp_sprintf('%s', VARIADIC array_fill('a'::text, '{99}'))", ()),
            (self.mail, None),
            ("SELECT xp_sendmail('b@b.test', 'subject', message => repeat('text ', 500))", None),
            ("SELECT xp_sendmail('b@b.test', 'subject', include_file => '/etc/services')", None),
            ("SELECT xp_stopsmtp()", None)))

    def call(self, sql, expected):
        """Whether it was answered."""
        try:
            with self.connection.cursor() as cursor:
                cursor.execute(sql)
                [value] = cursor.fetchone()
            self.outcomes["answered"] += 1
            if expected is not None and value not in expected:
                self.faults.append(f"{sql}: {value}")
            return True
        except psycopg2.Error as error:
            if self.connection.closed:
                self.outcomes["told to end"] += 1
                if self.pid not in self.told:
                    self.faults.append(f"{sql}: {error}")
                self.connect()
            elif error.pgcode == CANCELLED:
                self.outcomes["cancelled"] += 1
            else:
                self.outcomes[f"error {error.pgcode}"] += 1
                if expected:
                    self.faults.append(f"{sql}: {error}")
        return False

    def weigh(self):
        """KiB of memory and number of descriptors, with a worker and without a mail session."""
        while True:
            try:
                if self.call("SELECT xp_stopsmtp()", None):
                    return self.look()
            except FileNotFoundError:  # told to end meanwhile
                pass

    def look(self):
        with open(f"/proc/{self.pid}/status") as file:
            [memory] = [int(line.split()[1]) for line in file if line.startswith("RssAnon")]
        folder = f"/proc/{self.pid}/fd"
        opened = [os.readlink(os.path.join(folder, name)) for name in os.listdir(folder)]
        # The server keeps as many of its own files open as it likes.
        return memory, sum(not name.startswith(self.server.path("data")) for name in opened)


def main():
    mail = HostileServer()
    begun = time.monotonic()
    with server_with_extension(BITS, BUILD, PRODUCT) as server:
        watcher = server.connect().cursor()
        watcher.execute("CREATE EXTENSION quorel")
        open_files = len(os.listdir(f"/proc/{server.pid}/fd"))
        backends = [Backend(server, mail, number) for number in range(BACKENDS)]
        for backend in backends:
            backend.start()
        chance = random.Random(SEED)
        while any(backend.is_alive() for backend in backends):
            time.sleep(0.01)
            victim = chance.choice(backends)
            ending = chance.random() < 0.02
            if ending:
                victim.told.add(victim.pid)
            watcher.execute(f"SELECT pg_{'terminate' if ending else 'cancel'}_backend({victim.pid})")
        watcher.execute("SELECT xp_cmdshell('true')")
        watcher.connection.close()
        until(lambda: not server.started(), 10, "the end of what was started")
        faults = [fault for backend in backends for fault in backend.faults]
        if len(os.listdir(f"/proc/{server.pid}/fd")) != open_files:
            faults.append("the postmaster has other descriptors than before")
        log = server.log()
        for bad in ("terminated by signal", "reinitializing", "PANIC"):
            if bad in log:
                faults.append(bad + "\n" + log[-3000:])
    outcomes = sum((backend.outcomes for backend in backends), collections.Counter())
    growths = sorted(backend.growth for backend in backends if backend.growth is not None)
    if growths[-1] > GROWTH:
        faults.append("memory")
    print(f"{BACKENDS} backends in {time.monotonic() - begun:.0f} s: {dict(outcomes)}; memory of a backend"
          f" grew by {growths[len(growths) // 2]} KiB, at most {growths[-1]}")
    print(*faults[:20], sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
