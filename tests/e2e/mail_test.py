"""Mail through a server that others wrote, and what it received as others read it.

    mail_test.py LIBRARY HOSTCALL
"""
import email
import email.policy
import sys
import unittest

from cases import Case
from hostcall import call, mail, start, stop


def parsed(data):
    return email.message_from_bytes(data, policy=email.policy.default)


class Aiosmtpd(Case):
    def test_accepts_every_kind_of_message_and_others_parse_it(self):
        contents = bytes(range(256)) * 999
        server = self.serve()
        path = self.write("Übersicht 1.bin", contents)
        body = "Grüße\r\n.\r\n..dots\r\n日本語\r\n"
        self.assertEqual(call(
            start(server.port, sender_name="Ann"),
            mail("bob@b.test; eve@e.test", cc="carl@c.test", bcc="dan@d.test"),
            mail("bob@b.test", subject="Grüße an alle", body=body),
            mail("bob@b.test", body="<p>ü</p>", content_type="text/html; charset=utf-8"),
            mail("bob@b.test", body=body, file=path),
            mail("bob@b.test", subject=None, body=None),
            stop()), [0] * 7)
        sender, recipients, first = server.messages[0]
        self.assertEqual(sender, "ann@a.test")
        self.assertEqual(recipients, ["bob@b.test", "eve@e.test", "carl@c.test", "dan@d.test"])
        self.assertNotIn(b"dan@d.test", first)
        plain, foreign, html, attached, empty = (parsed(m[2]) for m in server.messages)
        self.assertEqual(plain["From"], "Ann <ann@a.test>")
        self.assertEqual(plain["To"], "bob@b.test, eve@e.test")
        self.assertEqual((plain["Cc"], plain["Subject"]), ("carl@c.test", "Hi"))
        self.assertEqual(plain.get_payload(decode=True), b"text\r\n\r\n")
        self.assertEqual(foreign["Subject"], "Grüße an alle")
        self.assertEqual(foreign.get_payload(decode=True).decode(), body + "\r\n")
        self.assertEqual(html.get_content_type(), "text/html")
        text, file = attached.iter_parts()
        self.assertEqual(text.get_payload(decode=True).decode().rstrip(), body.rstrip())
        self.assertEqual(file.get_payload(decode=True), contents)
        self.assertEqual(file.get_content_disposition(), "attachment")
        self.assertEqual(empty.get_payload(decode=True), b"")

    def test_may_exit_while_other_threads_send_and_still_stop_a_session(self):
        lines, port = [], self.serve().port
        for session in range(1, 5):
            lines += [start(port, session=session), mail("bob@b.test", session=session),
                      mail("bob@b.test", session=session), stop(session)]
        for _ in range(20):
            self.assertEqual(call(start(port), "threads 4", *lines), [0, 0])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
