#!/usr/bin/python3
"""demo_outbox.py QUOREL_OUTBOX LIBRARY: mail that is queued in a transaction, with the mail server away.

Three mails are queued with an order, a fourth with one that is rolled back. The daemon finds no server,
waits, and sends the three when there is one. What arrived is compared with what was queued.
"""
import os
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time

from demo_mail import Server

PROGRAM, LIBRARY = sys.argv[1:3]
QUEUE = """
CREATE TABLE orders (id INTEGER PRIMARY KEY, item TEXT);
BEGIN;
INSERT INTO orders (item) VALUES ('a kettle');
INSERT INTO quorel_message (recipients, subject, text_body) VALUES
    ('Bob <bob@b.test>', 'Grüße: your order', 'A kettle is on its way.'),
    ('store@a.test', 'To be packed', 'A kettle.');
INSERT INTO quorel_message (recipients, subject, html_body)
    VALUES ('Büro <office@büro.test>', 'Booked', '<b>A kettle</b>');
COMMIT;
BEGIN;
INSERT INTO orders (item) VALUES ('a mistake');
INSERT INTO quorel_message (recipients, subject, text_body)
    VALUES ('bob@b.test', 'Never to be seen', 'A mistake is on its way.');
ROLLBACK;
"""


def free_port():
    with socket.socket() as held:
        held.bind(("127.0.0.1", 0))
        return held.getsockname()[1]


def status(database):
    print(subprocess.run([PROGRAM, "--status", database], check=True, capture_output=True,
                         text=True).stdout, flush=True)


def all_wait(database):
    connection = sqlite3.connect(database)
    states = connection.execute("SELECT state, count(*) FROM quorel_delivery GROUP BY state").fetchall()
    connection.close()
    return states == [("queued", 3)]


def until(true):
    end = time.monotonic() + 60
    while not true():
        if time.monotonic() > end:
            sys.exit("demo: the mails did not arrive within a minute")
        time.sleep(0.05)


def main():
    folder = tempfile.TemporaryDirectory()
    database = os.path.join(folder.name, "shop.db")
    port = free_port()
    subprocess.run([PROGRAM, "--install", database], check=True, stdout=subprocess.DEVNULL)
    account = ("INSERT INTO quorel_account (name, host, port, sender, sender_name) "
               f"VALUES ('relay', '127.0.0.1', {port}, 'shop@a.test', 'Ann''s shop');")
    print(QUEUE.strip(), flush=True)
    subprocess.run(["sqlite3", database, account + QUEUE], check=True)
    print("\nThe daemon starts, and there is no mail server:")
    daemon = subprocess.Popen([PROGRAM, "--lib", LIBRARY, "--probe", "0.5,1", database],
                              stderr=subprocess.PIPE, text=True)
    try:
        print(daemon.stderr.readline(), end="", flush=True)
        until(lambda: all_wait(database))
        status(database)
        print("The mail server starts:", flush=True)
        server = Server(port=port)
        until(lambda: len(server.messages) == 3)
        print(daemon.stderr.readline(), end="", flush=True)
    finally:
        daemon.send_signal(signal.SIGTERM)
        daemon.wait(30)
    print("\nWhat it received:")
    for _, _, recipients, data in sorted(server.messages, key=lambda m: m[2]):
        message = server.parse(data)
        print(f"  to {' and '.join(recipients)}: {message['Subject']}, from {message['From']}, "
              f"{message['Message-ID']}")
    status(database)
    good = sorted(m[2][0] for m in server.messages) == ["bob@b.test", "office@xn--bro-hoa.test",
                                                        "store@a.test"]
    return 0 if good and daemon.returncode == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
