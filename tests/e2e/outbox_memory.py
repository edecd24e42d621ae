#!/usr/bin/python3
"""outbox_memory.py PROGRAM LIBRARY [DATABASE]: what a mail with an attachment of 25 MB costs of memory,
in the daemon and its worker together, and that it is given back."""
import os
import sys
import threading
import time

from outbox_kit import Outbox, PostgresBox, SqliteBox, children, until

SIZE = 25_000_000


def private(pids):
    """Bytes that belong to these processes alone."""
    total = 0
    for pid in pids:
        try:
            with open(f"/proc/{pid}/smaps_rollup") as file:
                total += sum(int(line.split()[1]) << 10 for line in file if line.startswith("Private_"))
        except OSError:
            pass  # it has ended
    return total


class Peak(threading.Thread):
    def __init__(self, pid):
        super().__init__(daemon=True)
        self.pid, self.bytes, self.over = pid, 0, False

    def run(self):
        while not self.over:
            self.bytes = max(self.bytes, private([self.pid, *children(self.pid)]))
            time.sleep(0.002)


def main(program, library, database="sqlite"):
    box = {"sqlite": SqliteBox, "postgres": PostgresBox}[database]
    with Outbox(box, program, library) as outbox:
        daemon = outbox.start("--sessions", "1")
        try:
            outbox.queue("a@b.test", "small")
            until(lambda: outbox.states() == {"sent": 1}, 30, "a small mail")
            before = private([daemon.pid, *children(daemon.pid)])
            peak = Peak(daemon.pid)
            peak.start()
            connection = outbox.box.connect()
            cursor = connection.cursor()
            cursor.execute("BEGIN")
            cursor.execute(f"INSERT INTO {outbox.box.name('message')} (recipients, subject) "
                           "VALUES ('a@b.test', 'large')")
            cursor.execute(f"SELECT max(id) FROM {outbox.box.name('message')}")
            [(number,)] = cursor.fetchall()
            mark = outbox.box.mark
            cursor.execute(f"INSERT INTO {outbox.box.name('attachment')} (message, name, content) "
                           f"VALUES ({mark}, 'large.bin', {mark})", (number, os.urandom(SIZE)))
            cursor.execute("COMMIT")
            connection.close()
            until(lambda: outbox.states() == {"sent": 2}, 120, "a large mail")
            peak.over = True
            after = until(lambda: private([daemon.pid, *children(daemon.pid)]), 1, "memory")
        finally:
            daemon.kill()
            daemon.wait()
        taken = outbox.relay.taken()[-1]["bytes"]
    cost = (peak.bytes - before) / SIZE
    print(f"{database}: 25 MB attached cost {cost:.2f} times their size, afterwards "
          f"{(after - before) / SIZE:.2f} times")
    assert taken > SIZE * 4 / 3
    assert os.environ.get("QUOREL_SANITIZE") or cost <= 4
    assert os.environ.get("QUOREL_SANITIZE") or after - before < SIZE / 4


if __name__ == "__main__":
    main(*sys.argv[1:])
