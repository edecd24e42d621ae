"""The program hostcall, which calls the library as a server would, and the lines that it takes."""
import os
import struct
import subprocess
import sys

LIBRARY, HOSTCALL = map(os.path.abspath, sys.argv[1:3])  # of every script that uses it
STARTS = {"sender": 1, "host": 2, "port": 3, "timeout": 4, "sender_name": 5, "user": 6, "password": 7,
          "trust": 8, "company": 9, "unit": 10, "name": 11, "session": 12}
MAILS = {"to": 1, "subject": 2, "cc": 3, "bcc": 4, "body": 6, "file": 10, "content_type": 19,
         "session": 20}


def line(procedure, arguments):
    words = [procedure]
    for number, value in arguments.items():
        if isinstance(value, int):
            words.append(f"{number} 496 {struct.pack('=i', value).hex()}")
        elif value is not None:
            words.append(f"{number} 448 {value.encode().hex()}")
    return " ".join(words)


def start(port, **more):
    given = {"sender": "ann@a.test", "host": "127.0.0.1", "port": port, "timeout": 10, **more}
    return line("xp_startsmtp", {STARTS[name]: value for name, value in given.items()})


def mail(to, **more):
    given = {"to": to, "subject": "Hi", "body": "text\r\n", **more}
    return line("xp_sendmail", {MAILS[name]: value for name, value in given.items()})


def stop(session=None):
    return line("xp_stopsmtp", {1: session})


def output(*lines, library=LIBRARY, cwd=None, **environment):
    """What one process prints for these lines, in a UTF-8 locale."""
    done = subprocess.run([HOSTCALL, library], input="\n".join(lines), text=True, timeout=120,
                          capture_output=True, cwd=cwd,
                          env={**os.environ, "LC_ALL": "C.UTF-8", **environment})
    assert done.returncode == 0, done.stderr
    return done.stdout


def call(*lines, **options):
    return [int(status) for status in output(*lines, **options).split()]
