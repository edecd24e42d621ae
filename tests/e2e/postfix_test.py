#!/usr/bin/python3
"""Mail through Postfix's own smtpd, standing alone: it keeps its messages as sendmail would.

    postfix_test.py LIBRARY MAILCALL UNPACKED

UNPACKED is a folder with Postfix unpacked into it; exits 77 where it is not there or does not run.
"""
import glob
import os
import select
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

from mail_test import STOP, call, mail, parsed, start

UNPACKED = sys.argv[3]


class Smtpd(unittest.TestCase):
    CONFIGURATION = """
compatibility_level = 3.6
queue_directory = {0}/queue
data_directory = {0}
command_directory = {0}/bin
meta_directory = {0}
daemon_directory = {1}/usr/lib/postfix/sbin
shlib_directory = {1}/usr/lib/postfix
mail_owner = mail
setgid_group = games
default_privs = daemon
myhostname = mail.b.test
mydestination = b.test
message_size_limit = 500000
alias_maps =
"""

    def setUp(self):
        if not os.path.exists(f"{UNPACKED}/usr/lib/postfix/sbin/smtpd"):
            self.skipTest(f"Postfix is not unpacked in {UNPACKED}")
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        # Copied to where the account below can enter, and to a name without special characters.
        self.postfix = shutil.copytree(UNPACKED, f"{self.folder}/postfix", symlinks=True)
        self.environment = {"LD_LIBRARY_PATH": f"{self.postfix}/usr/lib/postfix",
                            "MAIL_CONFIG": self.folder, "PATH": os.environ["PATH"]}
        for name in ("bin", "queue", "queue/maildrop", "queue/public", "queue/pid"):
            os.mkdir(f"{self.folder}/{name}")
        self.write("main.cf", self.CONFIGURATION.format(self.folder, self.postfix))
        self.write("master.cf", "")
        # smtpd hands its messages to postdrop, in an environment that it cleans first.
        self.write("bin/postdrop", f"#!/bin/sh\nLD_LIBRARY_PATH={self.postfix}/usr/lib/postfix "
                                   f'exec {self.postfix}/usr/sbin/postdrop "$@"\n')
        os.chmod(f"{self.folder}/bin/postdrop", 0o755)
        for path, _, _ in os.walk(self.folder):
            os.chmod(path, 0o777)
        # Neither root nor Postfix's owner may run smtpd so.
        self.options = {"env": self.environment}
        if os.geteuid() == 0:
            self.options["user"] = "nobody"
        try:
            subprocess.run([f"{self.postfix}/usr/sbin/postconf", "mail_version"], check=True,
                           stdout=subprocess.DEVNULL, **self.options)
        except (OSError, subprocess.CalledProcessError) as error:
            self.skipTest(f"Postfix does not run here: {error}")
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(self.listener.close)
        self.server = threading.Thread(target=self.serve_one_connection, daemon=True)
        self.server.start()

    def write(self, name, text):
        with open(f"{self.folder}/{name}", "w") as file:
            file.write(text)

    def serve_one_connection(self):
        connection, _ = self.listener.accept()
        # Its end is no TCP socket, or it would want the whole of Postfix behind it.
        ours, its_own = socket.socketpair()
        with connection, ours, its_own:
            smtpd = subprocess.Popen([f"{self.postfix}/usr/lib/postfix/sbin/smtpd", "-S"], stdin=its_own,
                                     stdout=its_own, **self.options)
            its_own.close()
            other = {connection: ours, ours: connection}
            data = True
            while data:
                [source, *_], _, _ = select.select(other, [], [])
                try:
                    data = source.recv(65536)
                    other[source].sendall(data)
                except ConnectionError:  # after QUIT either may go before the other has spoken
                    break
        self.status = smtpd.wait()

    def test_queues_what_was_sent(self):
        contents = os.urandom(300000)
        with tempfile.NamedTemporaryFile(suffix=".bin") as file:
            file.write(contents)
            file.flush()
            statuses = call(start(self.listener.getsockname()[1]),
                            mail("bob@b.test", body="too long\r\n" * 60000),
                            mail("bob@b.test;eve@b.test", subject="Öl", body=".\r\nGrüße\r\n",
                                 file=file.name),
                            STOP)
        self.server.join(60)
        self.assertEqual(statuses, [0, 104, 0, 0])
        self.assertEqual(self.status, 0)
        [queued] = glob.glob(f"{self.folder}/queue/maildrop/*")
        shown = subprocess.run([f"{self.postfix}/usr/sbin/postcat", "-h", "-b", queued],
                               env=self.environment, capture_output=True, check=True).stdout
        received = parsed(shown)
        self.assertEqual((received["To"], received["Subject"]), ("bob@b.test, eve@b.test", "Öl"))
        text, attachment = received.iter_parts()
        self.assertEqual(text.get_content().rstrip(), ".\nGrüße")
        self.assertEqual(attachment.get_filename(), os.path.basename(file.name))
        self.assertEqual(attachment.get_payload(decode=True), contents)


if __name__ == "__main__":
    result = unittest.main(argv=sys.argv[:1], exit=False).result
    for _, reason in result.skipped:
        print("skipped:", reason)
    sys.exit(77 if result.skipped else not result.wasSuccessful())
