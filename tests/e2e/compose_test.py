"""Composed mails go through the library to a mail server, and what arrived is what was meant, as three
parsers read it: Python's, GMime and Perl's MIME-tools.

    compose_test.py LIBRARY COMPOSECALL

With QUOREL_MAIL_SERVER=ADDRESS:PORT in the environment, they go to a server of yours, too, which must
take them all.
"""
import base64
import ctypes
import email
import email.policy
import itertools
import json
import os
import random
import re
import subprocess
import sys
import unittest

import gi
gi.require_version("GMime", "3.0")
from gi.repository import GMime

from cases import Case

LIBRARY, COMPOSECALL = sys.argv[1:3]
GMIME = ctypes.CDLL("libgmime-3.0.so.0")
GMIME_WARNING = ctypes.CFUNCTYPE(None, ctypes.c_int64, ctypes.c_uint, ctypes.c_char_p, ctypes.c_void_p)

TEXTS = [
    "Hello,\nthe report is ready.\n", "no line end", "\n\n\r\r\n\n", " blanks \t\n\tat the ends  ", "",
    "Grüße, 日本語 und 🎉\n", "A line with an ü and blanks at its end \t\n", "ü" * 5000, "x" * 5000, ("ü " * 2500 + "\n") * 3, "x" * 998 + "\n",
    "x" * 999 + "\n", ".\n..\n.\r\nFrom here\n--\n-- \n--=_a1_--\n", "a\0b\x07\x1b[2J\x7f=3D=\n= \n",
    "--==_EMAIL_MIME_2026_1123_120000_==\nContent-Type: text/html\n\n<script>\n", "=" * 400 + "\n",
    "".join(map(chr, range(0x20, 0x2FFF))), "\N{NO-BREAK SPACE}\u2028line\u0085next\n",
]
SUBJECTS = [
    "Report", "Grüße", "", "  blanks around  ", "two  blanks\tand a tab", "=?utf-8?q?no?= word", "x" * 3000,
    "日本語" * 100, "Re: a very plain subject " * 20, "ü " * 200, "word " * 30 + "ü" + " word" * 30,
    'quotes " and \\ <x@y>, (comment); Bcc: eve@e.test', "🎉" * 70, "a\u2028b\u202ec\u0085d", "a   ü   b   c",
]
NAMES = [
    "", "Ann Lee", "Lee, Ann", "Jörg Müller", 'The "Boss"', "back\\slash", "=?utf-8?q?x?=", "<eve@e.test>",
    "株式会社 データベース部 営業担当 田中太郎 様" * 4, "John Q. Public", "a@b", "x" * 200, "two  blanks",
    "Ann; Bob: Carl,", "(comment)", "ends in a dot.", "O'Neil!", "ü" * 74, "R&D [Lab]",
]
MAILBOXES = [
    ("ann@a.test", "ann@a.test"), ("bob+tag@b.test", "bob+tag@b.test"), ('"a b"@c.test', '"a b"@c.test'),
    ("x@münchen.example", "x@xn--mnchen-3ya.example"), ("y@日本。テスト", "y@xn--wgv71a.xn--zckzah"),
    ("z@faß.example", "z@xn--fa-hia.example"), ("l" * 64 + "@" + "d" * 60 + ".test",) * 2,
    ('"quo\\"ted.@"@q.test', '"quo\\"ted.@"@q.test'), ("a@[127.0.0.1]",) * 2, ("A.B@C.Test",) * 2,
]
FILE_NAMES = [
    "report.csv", "", "Übersicht 2026.pdf", "日本語" * 30 + ".txt", 'quote"back\\slash.bin', "a b.tar.gz",
    "=?utf-8?q?x?=.txt", "semi;colon=1.txt", "x" * 200 + ".json", "../../etc/passwd", "'%41*.html", "n" * 60,
]
CONTENTS = [b"", b"a,b\r\n1,2\n", bytes(range(256)) * 9, b"x" * 57, b"y" * 56, b"\r\n--=_a1_--\r\n.\r\n"]


def quoted(name):
    return '"' + name.replace("\\", "\\\\").replace('"', '\\"') + '"'


def written(name, mailbox):
    """An address as a person writes it."""
    return f"{quoted(name)} (a \\) comment (nested)) <{mailbox}>" if name else mailbox


class Mail:
    """A mail as composecall takes it, and what its readers must find."""

    def __init__(self, chance, with_text, with_html, pictures, files):
        pick = chance.choice
        self.people = {}
        self.fields = []
        self.add_people(chance, "from", 1)
        self.add_people(chance, "to", pick([0, 1, 3]))
        self.add_people(chance, "cc", pick([0, 0, 2]))
        self.add_people(chance, "reply_to", pick([0, 1]))
        self.fields += [("bcc", "blind@z.test;")]
        self.subject = pick(SUBJECTS)
        self.own = pick(SUBJECTS)
        self.fields += [("subject", self.subject), ("headers", f"X-Own-{'n' * pick([1, 44])}: {self.own}\n")]
        self.fields += pick([[], [("in_reply_to", "a@b.test"), ("references", "<a@b> " * 40)]])
        self.fields += pick([[], [("list_unsubscribe", "https://x.test/" + "u" * 300)]])
        self.fields += [("message_id", f"{chance.getrandbits(64)}@mail.test"), ("date", "1795441744")]
        self.parts = []
        if with_text:
            self.add_text("text", "text/plain", pick([text for text in TEXTS if text]))
        if with_html:
            self.add_text("html", "text/html", pick([text for text in TEXTS if text]))
        for number in range(pictures):
            self.add_file(pick(FILE_NAMES), "image/png", pick(CONTENTS), f"p{number}@x" if with_html else "")
        for _ in range(files):
            self.add_file(pick(FILE_NAMES), pick(["text/plain; charset=\"utf-8\"", "application/x-a"]),
                          pick(CONTENTS))
        if not self.parts:
            self.parts = [("text/plain", b"\r\n", None)]

    def add_people(self, chance, field, count):
        people = [(chance.choice(NAMES), *chance.choice(MAILBOXES)) for _ in range(count)]
        self.people[field] = [(name, ascii_form) for name, _, ascii_form in people]
        self.fields.append((field, ", ".join(written(name, own) for name, own, _ in people)))

    def add_text(self, field, kind, text):
        self.fields.append((field, text))
        lines = re.split("\r\n|\r|\n", text)
        if not lines[-1]:
            lines.pop()
        self.parts.append((kind, "".join(line + "\r\n" for line in lines).encode(), None))

    def add_file(self, name, kind, content, content_id=""):
        self.fields += [("attachment.name", name), ("attachment.type", kind),
                        ("attachment.content_id", content_id), ("attachment.content", content)]
        self.parts.append((kind.partition(";")[0], content, name or None))

    def framed(self):
        frames = b""
        for name, value in [*self.fields, ("end", b"")]:
            value = value if isinstance(value, bytes) else value.encode()
            frames += b"%s %d\n%s\n" % (name.encode(), len(value), value)
        return frames


def composed(mails, *arguments):
    """What composecall tells of each mail: a list of values by name."""
    done = subprocess.run([COMPOSECALL, *arguments], input=b"".join(mail.framed() for mail in mails),
                          stdout=subprocess.PIPE, timeout=300, check=True)
    told, result, rest = {}, [], done.stdout
    while rest:
        name, length = rest[:rest.index(b"\n")].split()
        begin = rest.index(b"\n") + 1
        told.setdefault(name.decode(), []).append(rest[begin:begin + int(length)])
        rest = rest[begin + int(length) + 1:]
        if name == b"end":
            result.append(told)
            told = {}
    return result


def read_by_python(data):
    message = email.message_from_bytes(data, policy=email.policy.default)
    defects = [part.defects for part in message.walk() if part.defects]
    defects += [(name, value, value.defects) for part in message.walk() for name, value in part.items()
                if value.defects]
    return message, defects, [
        (part.get_content_type(), part.get_payload(decode=True), part.get_filename())
        for part in message.walk() if not part.is_multipart()]


def read_by_gmime(data):
    warnings, parts = [], []
    options = GMime.ParserOptions.new()
    # What the bindings leave out.
    note = GMIME_WARNING(lambda offset, code, item, _: warnings.append((offset, code, item)))
    GMIME.g_mime_parser_options_set_warning_callback(ctypes.c_void_p(hash(options)), note, None)
    message = GMime.Parser.new_with_stream(GMime.StreamMem.new_with_buffer(data)).construct_message(options)

    def keep(_, part):
        if not isinstance(part, GMime.Multipart):
            memory = GMime.StreamMem.new()
            part.get_content().write_to_stream(memory)
            parts.append((part.get_content_type().get_mime_type(),
                          bytes(memory.get_byte_array()), part.get_filename()))
    message.foreach(keep)
    people = {field: [(one.get_name() or "", one.get_idn_addr()) for one in
                      map(listed.get_address, range(listed.length()))
                      if isinstance(one, GMime.InternetAddressMailbox)]
              for field, listed in [("from", message.get_from()), ("to", message.get_to()),
                                    ("cc", message.get_cc()), ("reply_to", message.get_reply_to())]}
    return warnings, parts, people


MIME_TOOLS = r"""
use MIME::Parser; use JSON::PP; use MIME::Base64;
my $json = JSON::PP->new;
while (my $line = <STDIN>) {
    my $parser = MIME::Parser->new;
    $parser->output_to_core(1);
    my $top = $parser->parse_data(decode_base64($line));
    my @parts = map { $_->parts ? () : [$_->mime_type, encode_base64($_->bodyhandle->as_string, "")] }
        $top->parts_DFS;
    print $json->encode([[$parser->results->errors, $parser->results->warnings], \@parts]), "\n";
}
"""


def in_lines(data):
    """MIME-tools writes a text's line ends as this system's."""
    return data.replace(b"\r\n", b"\n")


class Composed(Case):
    @classmethod
    def setUpClass(cls):
        GMime.init()
        chance = random.Random(16)
        cls.mails = [Mail(chance, *structure) for structure in
                     itertools.product((True, False), (True, False), (0, 1, 2), (0, 1, 3)) for _ in range(9)]

    def test_arrives_as_three_parsers_read_it(self):
        server = self.serve(data_size_limit=None, enable_SMTPUTF8=False)
        every = composed(self.mails, LIBRARY, "127.0.0.1", str(server.port))
        self.assertEqual([[b"0"]] * len(self.mails), [told.get("status", told) for told in every])
        mime_tools = subprocess.run(
            ["perl", "-e", MIME_TOOLS], stdout=subprocess.PIPE, check=True, timeout=300,
            input=b"".join(base64.b64encode(data) + b"\n" for _, _, data in server.messages)).stdout.splitlines()
        for mail, told, (sender, recipients, data), by_perl in zip(
                self.mails, every, server.messages, mime_tools, strict=True):
            with self.subTest(data=data[:3000], fields=mail.fields):
                self.check_wire(told, sender, recipients, data)
                message, defects, parts = read_by_python(data)
                self.assertEqual([], defects)
                self.assertEqual(mail.parts, parts)
                for part in message.walk():
                    if part["Content-Transfer-Encoding"] in ("quoted-printable", "base64"):
                        self.assertNotRegex(part.get_payload(), r"(?m)^[^\r\n]{77}|[ \t]\r?$")
                self.check_header(mail, message)
                self.assertEqual(([], mail.parts, mail.people), read_by_gmime(data))
                faults, parts = json.loads(by_perl)
                self.assertEqual([], faults)
                self.assertEqual([(kind, in_lines(body)) for kind, body, _ in mail.parts],
                                 [(kind, in_lines(base64.b64decode(body))) for kind, body in parts])

    @unittest.skipUnless("QUOREL_MAIL_SERVER" in os.environ, "no mail server is named")
    def test_is_taken_by_a_server_of_yours(self):
        address, _, port = os.environ["QUOREL_MAIL_SERVER"].rpartition(":")
        self.assertEqual([[b"0"]] * len(self.mails),
                         [told["status"] for told in composed(self.mails, LIBRARY, address, port)])

    def check_wire(self, told, sender, recipients, data):
        """The library adds three lines and a line end."""
        self.assertEqual([sender.encode()], told["sender"])
        self.assertEqual([r.encode() for r in recipients], told["recipient"])
        self.assertRegex(data, rb"\AFrom: [^\r\n]*\r\nX-Mailer: [^\r\n]*\r\nMIME-Version: 1.0\r\nDate: ")
        self.assertEqual(told["message"][0] + b"\r\n", data.split(b"\r\n", 3)[3])
        self.assertNotRegex(data, rb"[^\r]\n|\r[^\n]|[\x80-\xff\0]")
        lines = data.split(b"\r\n")
        self.assertLessEqual(max(map(len, lines)), 998)
        header = lines[3:lines.index(b"")]
        for line in header:
            self.assertTrue(len(line) <= 76 or b" " not in line.strip().partition(b": ")[2], line)

    def check_header(self, mail, message):
        for field, people in mail.people.items():
            found = message[field.replace("_", "-")]
            # Python puts blanks between encoded words; GMime tells the names as they are.
            self.assertEqual([(name.replace(" ", ""), mailbox) for name, mailbox in people],
                             [(a.display_name.replace(" ", ""), a.addr_spec)
                              for a in (found.addresses if found else ())])
        self.assertNotIn("Bcc", message)
        self.assertEqual(mail.subject.strip(), message["Subject"] or "")
        own = next(value for name, value in message.items() if name.startswith("X-Own-"))
        self.assertEqual(mail.own.strip(), own)
        self.assertEqual(1795441744, int(message["Date"].datetime.timestamp()))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
