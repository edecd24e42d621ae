"""The procedures in a PostgreSQL server beside what its users would take instead.

    postgres_bench.py BUILD

Run by tools/bench for each build folder: in a backend of the folder's word size and, in a 64-bit server,
in a worker, too.
Prints how many times as fast as the peer the procedure is, as the median of measurements in turn.
"""
import os
import socket
import statistics
import subprocess
import sys
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.append(os.path.join(ROOT, "tests/postgres"))
from scratchserver import server_with_extension, until  # noqa: E402

BUILD = os.path.abspath(sys.argv[1])
BITS = 64 if os.path.basename(BUILD).endswith("64") else 32
ROUNDS = 15
POSTFIX = os.path.join(ROOT, "build/postfix/usr")
LINE = "A line of text that is as long as lines of text are.\n"
SMTPLIB = """
CREATE EXTENSION plpython3u;
CREATE FUNCTION smtplib_send(port integer, text text) RETURNS integer LANGUAGE plpython3u AS $$
import smtplib
from email.message import EmailMessage
if "client" not in GD:
    GD["client"] = smtplib.SMTP("127.0.0.1", port)
message = EmailMessage()
message["From"], message["To"], message["Subject"] = "ann@a.test", "bob@b.test", "Hi"
message.set_content(text)
GD["client"].send_message(message)
return 0
$$;
"""


class Sink:
    """Postfix's smtp-sink, which takes any mail; None as port where it was not unpacked."""

    def __init__(self):
        self.port = self.process = None
        if not os.path.exists(POSTFIX + "/sbin/smtp-sink"):
            return
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        who = ["-u", "nobody"] if os.geteuid() == 0 else []
        self.process = subprocess.Popen(
            [POSTFIX + "/sbin/smtp-sink", *who, f"127.0.0.1:{self.port}", "100"],
            env={"LD_LIBRARY_PATH": POSTFIX + "/lib/postfix"}, stderr=subprocess.DEVNULL)
        until(self.answers, 10, "a mail server")

    def answers(self):
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", self.port)) == 0

    def close(self):
        if self.process is not None:
            self.process.terminate()
            self.process.wait()


def compare(cursor, label, least, subject, peer):
    """Each is a statement and how often it is executed."""

    def milliseconds(sql, count):
        begun = time.perf_counter()
        for _ in range(count):
            cursor.execute(sql)
        return (time.perf_counter() - begun) * 1000

    milliseconds(*subject), milliseconds(*peer)
    pairs = [(milliseconds(*subject), milliseconds(*peer)) for _ in range(ROUNDS)]
    speed = statistics.median(theirs / ours for ours, theirs in pairs)
    ours, theirs = (statistics.median(times) for times in zip(*pairs))
    print(f"{label}: {speed:.2f} times as fast ({ours:.2f} and {theirs:.2f} ms)", flush=True)
    if path := os.environ.get("QUOREL_BENCH_FIGURES"):
        with open(path, "a") as file:
            file.write(f"postgres_bench\t{label}\t{speed:.3f}\t{least:.3f}\n")


def run(server, sink, worker):
    connection = server.connect()
    cursor = connection.cursor()
    cursor.execute(f"SET quorel.worker = {worker}")
    how = "in a worker" if worker else "in the backend"
    for size, name, count in ((1 << 10, "1 KB", 300), (1 << 20, "1 MB", 30), (64 << 20, "64 MB", 1)):
        with open(os.path.join(server.files, "f"), "wb") as file:
            file.write(os.urandom(size))
        read = f"SELECT count(length({{}}('{server.files}/f'))) FROM generate_series(1, {count})"
        compare(cursor, f"read {name} {how}, beside pg_read_binary_file", 0.5 if worker else 0.8,
                (read.format("xp_read_file"), 1), (read.format("pg_read_binary_file"), 1))
    compare(cursor, f"a command {how}, beside COPY TO PROGRAM", 0, ("SELECT xp_cmdshell('true')", 20),
            ("COPY (SELECT 1) TO PROGRAM 'cat >/dev/null'", 20))
    if sink.port is not None and BITS == 64:
        text = LINE * 20
        cursor.execute(f"SELECT xp_startsmtp('ann@a.test', '127.0.0.1', {sink.port})")
        compare(cursor, f"mail of 1 KB {how}, beside PL/Python with smtplib", 3,
                (f"SELECT xp_sendmail('bob@b.test', 'Hi', message => '{text}')", 100),
                (f"SELECT smtplib_send({sink.port}, '{text}')", 100))
    connection.close()


def main():
    sink = Sink()
    try:
        with server_with_extension(BITS, BUILD, BUILD) as server:
            cursor = server.connect().cursor()
            cursor.execute("CREATE EXTENSION quorel;" + (SMTPLIB if BITS == 64 else ""))
            run(server, sink, False)
            if BITS == 64:
                run(server, sink, True)
    finally:
        sink.close()


if __name__ == "__main__":
    main()
