#!/usr/bin/python3
"""Mail through servers that others wrote, and what they received as others read it.

    mail_test.py LIBRARY MAILCALL
"""
import email
import email.policy
import os
import struct
import subprocess
import sys
import tempfile
import unittest

from aiosmtpd.smtp import AuthResult, LoginPassword

from mailserver import Server

LIBRARY, MAILCALL = sys.argv[1:3]
SENDER = "ann@a.test"


def line(procedure, arguments):
    words = [procedure]
    for number, value in arguments.items():
        if isinstance(value, int):
            words.append(f"{number} 496 {struct.pack('=i', value).hex()}")
        elif value is not None:
            words.append(f"{number} 448 {value.encode().hex()}")
    return " ".join(words)


def start(port, **more):
    names = {"sender": 1, "sender_name": 5, "user": 6, "password": 7, "session": 12}
    arguments = {1: SENDER, 2: "127.0.0.1", 3: port, 4: 10}
    arguments.update({names[name]: value for name, value in more.items()})
    return line("xp_startsmtp", arguments)


def mail(to, subject="Hi", body="text\r\n", cc=None, bcc=None, file=None, content_type=None,
         session=None):
    return line("xp_sendmail", {1: to, 2: subject, 3: cc, 4: bcc, 6: body, 10: file,
                                19: content_type, 20: session})


STOP = "xp_stopsmtp"


def call(*lines):
    """The statuses of the calls, made by one process in a UTF-8 locale, over the default session."""
    done = subprocess.run([MAILCALL, LIBRARY], input="\n".join(lines) + "\n", text=True, timeout=60,
                          capture_output=True, env={**os.environ, "LC_ALL": "C.UTF-8"})
    assert done.returncode == 0, done.stderr
    return [int(status) for status in done.stdout.split()]


def parsed(data):
    return email.message_from_bytes(data, policy=email.policy.default)


class Aiosmtpd(unittest.TestCase):
    def setUp(self):
        self.server = Server(**getattr(self, "options", {}))
        self.addCleanup(self.server.close)

    def test_accepts_every_kind_of_message_and_others_parse_it(self):
        contents = bytes(range(256)) * 999
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "Übersicht 1.bin")
            with open(path, "wb") as file:
                file.write(contents)
            body = "Grüße\r\n.\r\n..dots\r\n日本語\r\n"
            statuses = call(
                start(self.server.port, sender_name="Ann"),
                mail("bob@b.test; eve@e.test", cc="carl@c.test", bcc="dan@d.test"),
                mail("bob@b.test", subject="Grüße an alle", body=body),
                mail("bob@b.test", body="<p>ü</p>", content_type="text/html; charset=utf-8"),
                mail("bob@b.test", body=body, file=path),
                mail("bob@b.test", subject=None, body=None),
                STOP)
        self.assertEqual(statuses, [0] * 7)
        sender, recipients, first = self.server.messages[0]
        self.assertEqual(sender, SENDER)
        self.assertEqual(recipients, ["bob@b.test", "eve@e.test", "carl@c.test", "dan@d.test"])
        self.assertNotIn(b"dan@d.test", first)
        plain, foreign, html, attached, empty = (parsed(m[2]) for m in self.server.messages)
        self.assertEqual(plain["From"], "Ann <ann@a.test>")
        self.assertEqual(plain["To"], "bob@b.test, eve@e.test")
        self.assertEqual((plain["Cc"], plain["Subject"]), ("carl@c.test", "Hi"))
        self.assertEqual(plain["X-Mailer"], "Corvane External Library 12.0.1.3891")
        self.assertEqual(plain.get_content_type(), "text/plain")
        self.assertEqual(plain.get_payload(decode=True), b"text\r\n\r\n")
        self.assertEqual(foreign["Subject"], "Grüße an alle")
        self.assertEqual(foreign.get_content_charset(), "utf-8")
        self.assertEqual(foreign.get_payload(decode=True).decode(), body + "\r\n")
        self.assertEqual(html.get_content_type(), "text/html")
        text, file = attached.iter_parts()
        self.assertEqual(text.get_payload(decode=True).decode().rstrip(), body.rstrip())
        self.assertEqual(file.get_payload(decode=True), contents)
        self.assertEqual(file.get_content_disposition(), "attachment")
        self.assertEqual(file.get_content_type(), "application/octet-stream")
        self.assertIsNone(empty["Subject"])
        self.assertEqual(empty.get_payload(decode=True), b"")

    def test_may_exit_while_other_threads_send_and_still_stop_a_session(self):
        lines = []
        for session in range(1, 5):
            lines += [start(self.server.port, session=session), mail("bob@b.test", session=session),
                      mail("bob@b.test", session=session), line("xp_stopsmtp", {1: session})]
        for _ in range(20):
            self.assertEqual(call(start(self.server.port), "threads 4", *lines), [0, 0])


class ManySessions(unittest.TestCase):
    @unittest.skipIf(os.environ.get("QUOREL_SANITIZE"), "a sanitizer has memory of its own")
    def test_takes_a_thousand_sessions_in_200_MiB(self):
        server = Server()
        self.addCleanup(server.close)
        with tempfile.NamedTemporaryFile() as file:
            file.write(bytes(1000))
            file.flush()
            calls = [call for session in range(1, 1001) for call in
                     (start(server.port, session=session),
                      mail("bob@b.test", file=file.name, session=session))]
            before, *statuses, after = call("memory", *calls, "memory")
        self.assertEqual(statuses.count(0), 2000, statuses[:9])
        self.assertLess(after - before, 200 * 1024)


class AiosmtpdWithLogin(Aiosmtpd):
    options = {
        "auth_required": True, "auth_require_tls": False,
        "authenticator": lambda server, session, envelope, mechanism, data: AuthResult(
            success=data == LoginPassword("ann".encode(), "söcret".encode()), handled=False),
    }
    test_accepts_every_kind_of_message_and_others_parse_it = None
    test_may_exit_while_other_threads_send_and_still_stop_a_session = None

    def test_lets_in_who_has_the_password(self):
        self.assertEqual(call(start(self.server.port, user="ann", password="söcret"),
                              mail("bob@b.test"), STOP), [0, 0, 0])
        self.assertEqual(call(start(self.server.port, user="ann", password="wrong"),
                              mail("bob@b.test")), [104, 25])
        self.assertEqual(call(start(self.server.port), mail("bob@b.test"), STOP), [0, 104, 0])
        self.assertEqual(len(self.server.messages), 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
