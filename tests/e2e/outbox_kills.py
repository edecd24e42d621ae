#!/usr/bin/python3
"""outbox_kills.py PROGRAM LIBRARY [MESSAGES KILLS [DATABASE]]: no mail is lost, whoever dies.

Mails are queued while the daemon, its workers, the mail server and the database server are killed by
a seeded choice and started again. In the end every mail was taken, copies are at most one for each
kill and session, and the tables tell the same.
"""
import os
import random
import signal
import subprocess
import sys
import time

from outbox_kit import Outbox, PostgresBox, SqliteBox, children, until

SESSIONS = 3


class Chaos:
    def __init__(self, outbox, seed):
        self.outbox = outbox
        self.random = random.Random(seed)
        self.daemon = None
        self.kills = {}

    def keep_running(self):
        """As a service manager does."""
        if self.daemon is None or self.daemon.poll() is not None:
            self.daemon = self.outbox.start("--sessions", str(SESSIONS))

    def pause(self):
        time.sleep(self.random.uniform(0.02, 0.3))

    def kill_daemon(self):
        self.daemon.kill()
        self.daemon.wait()
        self.pause()

    def kill_worker(self):
        workers = children(self.daemon.pid)
        if not workers:
            return False
        try:
            os.kill(self.random.choice(workers), signal.SIGKILL)
        except ProcessLookupError:
            return False
        return True

    def kill_relay(self):
        self.outbox.relay.kill()
        self.pause()
        self.outbox.relay.start()

    def kill_database(self):
        self.outbox.box.kill()
        self.pause()
        self.outbox.box.start()

    def kill_one(self):
        victims = ["daemon", "worker", "relay"] + ["database"] * self.outbox.box.can_die
        victim = self.random.choice(victims)
        if getattr(self, "kill_" + victim)() is not False:
            self.kills[victim] = self.kills.get(victim, 0) + 1

    def end(self):
        if self.daemon is None:
            return 0
        self.daemon.send_signal(signal.SIGTERM)
        return self.daemon.wait(60)


def run(chaos, messages, kills):
    outbox = chaos.outbox
    queued = 0
    while sum(chaos.kills.values()) < kills:
        step = min(messages - queued, max(1, messages // kills))
        if step > 0:
            outbox.queue_many(range(queued, queued + step))
        queued += step
        chaos.keep_running()
        chaos.pause()
        chaos.kill_one()
    if queued < messages:
        outbox.queue_many(range(queued, messages))

    def done():
        chaos.keep_running()
        return outbox.states() == {"sent": messages}
    until(done, 120, "an outbox without work")
    assert chaos.end() == 0, "a daemon that is told to stop succeeds"


def check(outbox, messages, kills):
    taken = outbox.relay.taken()
    missing = {f"mail {n}" for n in range(messages)} - {m["subject"] for m in taken}
    assert not missing, f"lost: {missing}"
    assert len({m["id"] for m in taken}) == messages, "a copy has the Message-ID of the first"
    copies = outbox.relay.copies()
    assert copies <= kills * SESSIONS, f"{copies} copies"
    wrong = outbox.sql("""
        SELECT d.id FROM {delivery} d WHERE lease_until IS NOT NULL OR finished IS NULL
            OR attempts <> (SELECT count(*) FROM {attempt} a WHERE a.delivery = d.id)
            OR NOT EXISTS (SELECT 1 FROM {attempt} a WHERE a.delivery = d.id AND a.status = 0)""")
    assert not wrong, f"deliveries and attempts disagree: {wrong}"
    [(unknown,)] = outbox.sql("SELECT count(*) FROM {attempt} WHERE ended IS NULL")
    assert unknown <= kills * SESSIONS, f"{unknown} attempts without an end"
    return copies, unknown


def main(program, library, messages="250", kills="10", *databases):
    boxes = {"sqlite": SqliteBox, "postgres": PostgresBox}
    for name in databases or ["sqlite"]:
        seed = int(os.environ.get("OUTBOX_SEED", "1"))
        begin = time.monotonic()
        with Outbox(boxes[name], program, library) as outbox:
            chaos = Chaos(outbox, seed)
            try:
                run(chaos, int(messages), int(kills))
            finally:
                if chaos.daemon is not None and chaos.daemon.poll() is None:
                    chaos.daemon.kill()
            copies, unknown = check(outbox, int(messages), int(kills))
        print(f"{name}: {messages} mails, kills {chaos.kills}: none lost, {copies} copies, {unknown} "
              f"attempts without an end, {time.monotonic() - begin:.0f} s", flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
