#!/usr/bin/python3
"""outbox_daemons.py PROGRAM LIBRARY [MESSAGES]: one, two and four daemons share an outbox in PostgreSQL;
no mail goes twice. Prints how many mails a second each number of them sends."""
import subprocess
import sys
import time

from outbox_kit import Outbox, PostgresBox


def seconds(outbox, daemons, first, messages):
    outbox.queue_many(range(first, first + messages))
    begin = time.monotonic()
    running = [subprocess.Popen(outbox.command("--once", "--sessions", "2")) for _ in range(daemons)]
    # One that finds nothing to do is done, while another one still sends.
    assert all(daemon.wait(300) in (0, 1) for daemon in running)
    return time.monotonic() - begin


def main(program, library, messages="400"):
    messages = int(messages)
    with Outbox(PostgresBox, program, library) as outbox:
        for step, daemons in enumerate((1, 2, 4)):
            took = seconds(outbox, daemons, step * messages, messages)
            print(f"{daemons} daemons: {messages / took:.0f} mails a second", flush=True)
        assert outbox.states() == {"sent": 3 * messages}, outbox.states()
        taken = outbox.relay.taken()
        assert len(taken) == len({m["id"] for m in taken}) == 3 * messages, "a mail went twice"
        [(attempts,)] = outbox.sql("SELECT count(*) FROM {attempt}")
        assert attempts == 3 * messages, f"{attempts} attempts"


if __name__ == "__main__":
    main(*sys.argv[1:])
