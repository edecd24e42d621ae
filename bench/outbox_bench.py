#!/usr/bin/python3
"""outbox_bench.py BUILD MODULES: mails a second out of an outbox, beside others that do the same.

The peer is a job queue over PostgreSQL with a mail library, both of others (bench/outbox_peer.mjs). All
have the same PostgreSQL server, which writes to the disk at each commit, and the same mail server.
"""
import json
import os
import sqlite3
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../tests/postgres"))
from scratchserver import ScratchServer  # noqa: E402

BUILD, MODULES = sys.argv[1:3]
PROGRAM = os.path.join(BUILD, "host/outbox/quorel-outbox")
LIBRARY = os.path.join(BUILD, "extdll/libquorel_static.so")
WORKER = os.path.join(BUILD, "host/worker/quorel-worker")
SINK = os.path.join(BUILD, "bench/mail_sink")
MAILS, PEER_MAILS, SESSIONS, WORKERS, ROUNDS = 8000, 2000, 16, 10, 3
TEXT = "text " * 200


def median(values):
    return sorted(values)[len(values) // 2]


def timed(work, count):
    begin = time.monotonic()
    work()
    return count / (time.monotonic() - begin)


class Sqlite:
    mark, prefix = "?", "quorel_"

    def __init__(self, folder):
        self.where = os.path.join(folder, "outbox.db")

    def connect(self):
        return sqlite3.connect(self.where, timeout=30)


class Postgres:
    mark, prefix = "%s", "quorel."

    def __init__(self, server):
        self.server = server
        self.where = f"host={server.folder} user=postgres dbname=postgres"

    def connect(self):
        return self.server.connect()


def install(box, port):
    subprocess.run([PROGRAM, "--install", box.where], check=True, stdout=subprocess.DEVNULL)
    connection = box.connect()
    connection.cursor().execute(
        f"INSERT INTO {box.prefix}account (name, host, port, sender) "
        f"VALUES ('sink', '127.0.0.1', {port}, 'ann@a.test')")
    connection.commit()
    connection.close()


def send(box, mails, sessions):
    connection = box.connect()
    rows = [(f"bob{n}@b.test", f"mail {n}", TEXT) for n in range(mails)]
    connection.cursor().executemany(
        f"INSERT INTO {box.prefix}message (recipients, subject, text_body) "
        f"VALUES ({box.mark}, {box.mark}, {box.mark})", rows)
    connection.commit()
    connection.close()
    command = [PROGRAM, "--once", "--sessions", str(sessions), "--lib", LIBRARY, box.where]
    return timed(lambda: subprocess.run(command, check=True), mails)


def send_by_peer(server, port):
    peer = subprocess.Popen(
        ["node", os.path.join(HERE, "outbox_peer.mjs"), MODULES,
         f"postgres:///postgres?host={server.folder}&user=postgres", str(port), str(PEER_MAILS),
         str(WORKERS)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    assert peer.stdout.readline() == "ready\n"
    connection = server.connect()
    for n in range(PEER_MAILS):
        mail = {"from": "ann@a.test", "to": f"bob{n}@b.test", "subject": f"mail {n}", "text": TEXT}
        connection.cursor().execute("SELECT FROM graphile_worker.add_job('send', %s)", (json.dumps(mail),))
    connection.close()

    def work():
        peer.stdin.write("go\n")
        peer.stdin.flush()
        assert peer.stdout.readline() == f"{PEER_MAILS}\n"
    speed = timed(work, PEER_MAILS)
    peer.wait()
    return speed


def compare(label, speeds, peers, least):
    ratio = median([a / b for a, b in zip(speeds, peers)])
    print(f"{label}: {ratio:.2f} times as fast ({median(speeds):.0f} and {median(peers):.0f} mails a second)",
          flush=True)
    figures = os.environ.get("QUOREL_BENCH_FIGURES")
    if figures:
        with open(figures, "a") as file:
            file.write(f"outbox_bench\t{label}\t{ratio:.4f}\t{least}\n")


class Sink:
    """The mail server, which takes so many milliseconds for each answer."""

    def __init__(self, milliseconds):
        self.process = subprocess.Popen([SINK, str(milliseconds)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def close(self):
        self.process.stdin.close()
        self.process.wait()


def plain(mails, milliseconds):
    """Of the library over one session: in its caller's process, and in a worker."""
    words = subprocess.run([SINK, str(milliseconds), LIBRARY, WORKER, str(mails), str(len(TEXT))],
                           check=True, capture_output=True, text=True).stdout
    return [float(word) for word in words.split()]


def use(box, port):
    connection = box.connect()
    connection.cursor().execute(f"UPDATE {box.prefix}account SET port = {port}")
    connection.commit()
    connection.close()


def compare_one_session(boxes):
    """A commit for each mail waits for the disk: what that takes of a session's speed depends on how fast
    the mail server is."""
    for milliseconds, mails, least in ((1, 300, 0.5), (0, 2000, 0)):
        sink = Sink(milliseconds)
        for name, box in boxes:
            use(box, sink.port)
            pairs = [(send(box, mails, 1), *plain(mails, milliseconds)) for _ in range(ROUNDS)]
            one, here, worker = zip(*pairs)
            compare(f"one session in {name}, {milliseconds} ms an answer / the library", one, here, least)
            if milliseconds == 0:
                compare(f"one session in {name} / the library in a worker", one, worker, 0)
        sink.close()


def main():
    sink = Sink(0)
    port = sink.port
    folder = tempfile.TemporaryDirectory()
    server = ScratchServer(64, fsync="on", shared_buffers="128MB", autovacuum="on")
    with server, folder:
        sqlite, postgres = Sqlite(folder.name), Postgres(server)
        install(sqlite, port)
        install(postgres, port)
        with_peer = os.path.isdir(os.path.join(MODULES, "node_modules/nodemailer"))
        rounds = [(with_peer and send_by_peer(server, port), send(postgres, MAILS, SESSIONS), send(sqlite, MAILS, SESSIONS))
                  for _ in range(ROUNDS)]
        peer, many, many_sqlite = zip(*rounds)
        if with_peer:
            compare("outbox in PostgreSQL / graphile-worker with nodemailer", many, peer, 10)
        compare("outbox in SQLite / outbox in PostgreSQL", many_sqlite, many, 1)
        compare_one_session((("PostgreSQL", postgres), ("SQLite", sqlite)))
    sink.close()


if __name__ == "__main__":
    main()
