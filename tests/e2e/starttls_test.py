#!/usr/bin/python3
"""Mail over TLS: servers that others wrote, bad certificates, bad servers, bad providers.

    starttls_test.py LIBRARY MAILCALL PROVIDER PLANTED QUORELSQL XPCALL

PROVIDER is the provider library that the library finds where it lies; PLANTED is one that says when
it is loaded and is of another version.
"""
import contextlib
import logging
import os
import re
import resource
import shutil
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from aiosmtpd.smtp import AuthResult, LoginPassword  # noqa: E402
from certificates import Authority  # noqa: E402
from mail_test import LIBRARY, MAILCALL, line  # noqa: E402
import tracing
from mailserver import Server  # noqa: E402

PROVIDER, PLANTED, QUORELSQL, XPCALL = (os.path.abspath(path) for path in sys.argv[3:7])
PROVIDER_NAME = "libnxrsa12_r.so"
logging.disable()  # the servers' complaints about the handshakes that fail here
CONNECTION = 7  # without a number, there would be no TLS
STOP = line("xp_stopsmtp", {1: CONNECTION})
OPTIONS = {"user": 6, "password": 7, "trust": 8, "company": 9, "unit": 10, "name": 11}


def start(port, host="127.0.0.1", **options):
    arguments = {1: "ann@a.test", 2: host, 3: port, 4: 10, 12: CONNECTION}
    arguments.update({OPTIONS[name]: value for name, value in options.items()})
    return line("xp_startsmtp", arguments)


def mail(to, subject="Hi", body="text", file=None):
    return line("xp_sendmail", {1: to, 2: subject, 6: body, 10: file, 20: CONNECTION})


def call(*lines, library=LIBRARY, cwd=None, **environment):
    """The statuses of the calls of one process, and what it said on standard error."""
    # A session that was started leaves a small record behind by design.
    environment = {**os.environ, "ASAN_OPTIONS": "detect_leaks=0", **environment}
    done = subprocess.run([MAILCALL, library], input="\n".join(lines) + "\n", text=True, timeout=60,
                          capture_output=True, cwd=cwd, env=environment)
    assert done.returncode == 0, done.stderr
    return [int(status) for status in done.stdout.split()], done.stderr


def spent():
    """Seconds of CPU time that the ended processes used."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def server_context(certificate, version=None):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate)
    if version:
        context.minimum_version = context.maximum_version = version
    return context


class Talk:
    """The server's side of a conversation."""

    def __init__(self, connection):
        self.connection = connection
        self.lines = connection.makefile("rb", buffering=0)

    def say(self, *lines):
        self.connection.sendall("".join(f"{line}\r\n" for line in lines).encode())

    def hear(self, command):
        heard = self.lines.readline()
        assert heard.startswith(command.encode()), heard

    def greet(self, *capabilities):
        self.say("220 ready")
        self.hear("EHLO")
        self.say("250-hello", *capabilities)

    def offer(self, *answer):
        self.greet("250 STARTTLS")
        self.hear("STARTTLS")
        self.say(*answer)

    def secure(self, *answer):
        self.offer(*(answer or ("220 go ahead",)))
        self.lines.close()
        self.__init__(Tls.context.wrap_socket(self.connection, server_side=True))
        self.hear("EHLO")

    def end(self):
        """Nothing more may come."""
        assert self.lines.read(1) == b""

    def open(self):
        self.secure()
        self.say("250 hello again")

    def take_data(self):
        self.open()
        for command, answer in ("MAIL", "250 ok"), ("RCPT", "250 ok"), ("DATA", "354 go on"):
            self.hear(command)
            self.say(answer)
        self.hear("From:")


class Peer:
    """Answers one connection as `script` says, which then ends by FIN, or by RST.

    What is left unread would make an RST of the FIN, so that is read until the client goes."""

    def __init__(self, script, reset=False):
        self.script, self.reset, self.failure = script, reset, None
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self.run)

    def run(self):
        talk = Talk(self.listener.accept()[0])
        try:
            self.script(talk)
        except Exception as failure:  # for the thread that made this one
            self.failure = failure
        if self.reset:
            talk.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        else:
            self.finish(talk.connection)
        talk.lines.close()
        talk.connection.close()

    @staticmethod
    def finish(connection):
        connection.settimeout(60)
        try:
            connection.shutdown(socket.SHUT_WR)
            while connection.recv(1 << 20):
                pass
        except OSError:  # the client has gone already
            pass

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.thread.join(60)
        self.listener.close()
        if self.failure:
            raise self.failure


class Tls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        cls.authority = Authority(folder.name)
        cls.trust = cls.authority.file
        cls.certificates = {kind: cls.authority.issue(kind, kind) for kind in ("rsa", "ec")}
        Tls.context = server_context(cls.certificates["ec"])

    def serve(self, context, **options):
        server = Server(tls_context=context, require_starttls=True, **options)
        self.addCleanup(server.close)
        return server


class Delivery(Tls):
    LOGIN = {
        "auth_required": True,
        "authenticator": lambda server, session, envelope, mechanism, data: AuthResult(
            success=data == LoginPassword(b"ann", "söcret".encode()), handled=False),
    }

    def send(self, server, **options):
        path = os.path.join(self.folder, "attached")
        with open(path, "wb") as file:
            file.write(bytes(range(256)) * 2000)
        body = "Grüße\r\n.\r\n..dots\r\n" * 100
        statuses, said = call(start(server.port, **options), mail("bob@b.test", body=body, file=path),
                              mail("bob@b.test", subject="Grüße"), STOP, LC_ALL="C.UTF-8")
        self.assertEqual(statuses, [0, 0, 0, 0], said)
        self.assertIn("threads 1, descriptors 3\n", said)
        # The date and the boundary differ from message to message.
        return [re.sub(rb"(?m)^Date: .*|_MIME_[0-9_]+", b"", message)
                for _, _, message in server.messages]

    def test_is_what_clear_text_delivers_and_unloads_without_a_trace(self):
        clear = Server()
        self.addCleanup(clear.close)
        wanted = self.send(clear)
        for kind, certificate in self.certificates.items():
            for version in ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3:
                with self.subTest(kind, version=version):
                    server = self.serve(server_context(certificate, version), **self.LOGIN)
                    self.assertEqual(wanted, self.send(server, trust=self.trust, user="ann",
                                                       password="söcret", name="localhost"))

    @unittest.skipIf(os.environ.get("QUOREL_SANITIZE"), "a sanitizer makes calls of its own")
    @unittest.skipUnless(tracing.usable(), "strace may not trace here")
    def test_costs_no_system_calls_but_those_that_move_bytes(self):
        path = os.path.join(self.folder, "1M")
        with open(path, "wb") as file:
            file.write(bytes(1 << 20))
        for secure in (False, True):
            server = self.serve(self.context) if secure else Server()
            options = {"trust": self.trust} if secure else {}
            small, large = mail("bob@b.test", body="text\r\n" * 170), mail("bob@b.test", file=path)
            calls = [start(server.port, **options), small, small, large, large, STOP]
            counts, said = tracing.calls_between_outputs([MAILCALL, LIBRARY], "\n".join(calls) + "\n")
            self.assertEqual(said.split(), ["0"] * 6)
            _, message, _, attached = (sorted(each.values(), reverse=True) for each in counts[1:5])
            self.assertEqual(message, [4, 4], "sends, and receives")
            self.assertLessEqual(sum(attached), 52, counts)
            if not secure:
                server.close()

    def test_needs_the_right_password(self):
        server = self.serve(self.context, **self.LOGIN)
        self.assertEqual(call(start(server.port, trust=self.trust, user="ann", password="wrong"),
                              mail("bob@b.test"))[0], [105, 25])

    def test_reaches_the_openssl_programs_server_in_few_records(self):
        program = subprocess.Popen(
            ["openssl", "s_server", "-accept", "127.0.0.1:0", "-naccept", "1", "-cert",
             self.certificates["rsa"], "-crlf"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(program.communicate)
        self.addCleanup(program.kill)
        port = next(int(line.rsplit(":", 1)[1]) for line in program.stdout if "ACCEPT" in line)
        attached = os.path.join(self.folder, "ten megabytes")
        with open(attached, "wb") as file:
            file.truncate(10 << 20)
        sent = bytearray()

        def relay(talk):
            talk.offer("220 go ahead")
            with socket.create_connection(("127.0.0.1", port)) as server:
                threading.Thread(target=pump, args=(server, talk.connection)).start()
                threading.Thread(target=answer).start()
                pump(talk.connection, server, sent.extend)

        def pump(source, target, note=len):
            with contextlib.suppress(OSError):  # whoever has left needs no good-bye
                while data := source.recv(65536):
                    note(data)
                    target.sendall(data)
                target.shutdown(socket.SHUT_WR)

        def answer():
            for said in program.stdout:
                if said.startswith(("EHLO", "MAIL", "RCPT", "DATA", ".\n", "QUIT")):
                    program.stdin.write("354 go on\n" if said == "DATA\n" else "250 well\n")
                    program.stdin.flush()

        with Peer(relay) as peer:
            self.assertEqual(call(start(peer.port, trust=self.trust),
                                  mail("bob@b.test", file=attached), STOP)[0], [0, 0, 0])
        starts = [0]
        while starts[-1] < len(sent):
            starts.append(starts[-1] + 5 + int.from_bytes(sent[starts[-1] + 3:starts[-1] + 5], "big"))
        self.assertIn(len(starts), range(800, 2000))


class Certificates(Tls):
    def test_decide(self):
        stranger = Authority(self.folder, "stranger")
        expired = self.authority.issue("expired", days=-1)
        client = self.authority.issue("client", usage="clientAuth")
        empty = os.path.join(self.folder, "empty")
        open(empty, "w").close()
        good = self.certificates["ec"]
        for certificate, status, options in (
            (good, 0, {"company": "Example", "unit": "Mail", "name": "mail"}),
            (good, 0, {"name": "any.wild.test"}),
            (good, 105, {"company": "example"}),
            (good, 105, {"unit": "Mai"}),
            (good, 105, {"name": "127.0.0.1"}),
            (good, 105, {"name": "a.b.wild.test"}),
            (good, 105, {"trust": stranger.file}),
            (good, 105, {"trust": empty}),
            (good, 105, {"trust": self.folder}),
            (good, 105, {"trust": "/nowhere"}),
            (stranger.issue("server"), 105, {}),
            (expired, 105, {}),
            (client, 105, {}),
        ):
            with self.subTest(os.path.basename(certificate), **options):
                server = self.serve(server_context(certificate))
                self.assertEqual(call(start(server.port, **{"trust": self.trust, **options}))[0],
                                 [status])


class BadServers(Tls):
    def check(self, script, statuses, *more, reset=False):
        """The seconds that the calls took, and those of them on a CPU."""
        with Peer(script, reset) as peer:
            begun, used = time.monotonic(), spent()
            self.assertEqual(call(start(peer.port, trust=self.trust), *more)[0], statuses)
            return time.monotonic() - begun, spent() - used

    def test_that_do_not_secure_the_connection_give_105(self):
        hello = struct.Struct(">5s")

        def without(talk):
            talk.greet("250 AUTH PLAIN")
            talk.end()

        def refusing(talk):
            talk.offer("454 not now")
            talk.end()

        def injecting(talk):
            talk.secure("220 go ahead", "250 injected")
            talk.say("554 the true answer")

        def answering(data):
            def script(talk):
                talk.offer("220 go ahead")
                talk.lines.read(hello.size)
                talk.connection.sendall(data)
                talk.lines.read()
            return script

        for script in (
            without, refusing, injecting,
            answering(b"\x15\x03\x03\x00\x02\x02\x28"),  # the alert handshake_failure
            answering(b"250 no ServerHello\r\n" * 10),
            answering(b"\x16\x03\x03\xff\xff" + bytes(70000)),
        ):
            with self.subTest(script.__name__):
                self.check(script, [105])

    def test_that_go_away_end_the_call_wherever_that_is(self):
        attached = os.path.join(self.folder, "long")
        with open(attached, "wb") as file:
            file.write(bytes(5 << 20))

        # Two seconds of patience with a silent peer, and as many for a busy machine. It waits
        # asleep: beyond what a session without a fault takes, it uses next to nothing.
        used = spent()
        call(start(self.serve(self.context).port, trust=self.trust), mail("b@b.test", file=attached),
             STOP)
        healthy = spent() - used

        def hello_heard(talk):
            talk.offer("220 go ahead")
            talk.lines.read(5)

        def half_a_hello(talk):
            hello_heard(talk)
            talk.connection.sendall(b"\x16\x03\x03\x00\x7a\x02\x00")

        def ehlo_heard(talk):
            talk.say("220 ready")
            talk.hear("EHLO")

        def mail_heard(talk):
            talk.open()
            talk.hear("MAIL")

        self.check(lambda talk: None, [104])
        for script, statuses, *more in (
            (ehlo_heard, [104]),
            (lambda talk: talk.offer(), [104]),
            (hello_heard, [105]),
            (half_a_hello, [105]),
            (lambda talk: talk.secure(), [105]),
            (mail_heard, [0, 104, 0], mail("bob@b.test"), STOP),
            (lambda talk: talk.take_data(), [0, 104, 0], mail("bob@b.test", file=attached), STOP),
        ):
            for reset in False, True:
                with self.subTest(statuses, script=script.__name__, reset=reset):
                    took, used = self.check(script, statuses, *more, reset=reset)
                    self.assertLess(took, 4)
                    self.assertLess(used, 2 * healthy + 0.05 * took)

    def test_that_are_not_there_give_100(self):
        with socket.socket() as nobody:
            nobody.bind(("127.0.0.1", 0))
            port = nobody.getsockname()[1]
            # No name server is asked for a label of 64 letters.
            for host in "127.0.0.1", "x" * 64 + ".test":
                self.assertEqual(call(start(port, host=host, trust=self.trust))[0], [100], host)


class Providers(Tls):
    def test_come_from_beside_the_library_or_not_at_all(self):
        def folder(name, library, provider=None):
            path = os.path.join(self.folder, name)
            os.mkdir(path)
            if library:
                shutil.copy(LIBRARY, path)
            if provider:
                shutil.copy(provider, os.path.join(path, PROVIDER_NAME))
            return path

        def start_with(home, **more):
            server = self.serve(self.context)
            library = os.path.join(home, os.path.basename(LIBRARY))
            [status], said = call(start(server.port, trust=self.trust), library=library, **more)
            return status, "planted library loaded" in said

        planted = folder("planted", False, PLANTED)
        no_library = os.path.join(self.folder, "text")
        with open(no_library, "w") as file:
            file.write("no library\n")
        self.assertEqual(start_with(folder("whole", True, PROVIDER)), (0, False))
        self.assertEqual(start_with(folder("without", True), cwd=planted, LD_LIBRARY_PATH=planted,
                                    PATH=planted), (15, False))
        self.assertEqual(start_with(folder("refused", True, no_library)), (15, False))
        self.assertEqual(start_with(folder("other", True, PLANTED)), (15, True))


class Hosts(Tls):
    def test_start_a_secure_session_and_put_its_status_into_words(self):
        port = self.serve(self.context).port
        call = ("CALL xp_startsmtp(sender => 'ann@a.test', host => '127.0.0.1', port => {}, trusted_cert "
                "=> '{}', cert_company => 'Example', cert_unit => 'Mail', cert_name => '{}')")
        arguments = ["ann@a.test", "127.0.0.1", str(port), "null", "null", "null", "null", self.trust]
        # An address is in no certificate; an empty name switches the check off.
        any_name = [*arguments, "null", "null", ""]
        select = "SELECT xp_startsmtp({}) AS status".format(
            ", ".join(word if word == "null" else f"'{word}'" for word in any_name))
        opened, refused = "status 0: the session is open\n", "status 105: not secured: "
        warning = "xpcall: warning: cert_name is empty: any server with a certificate"
        for command, said, warned in (
            ([QUORELSQL, "-c", call.format(port, self.trust, "localhost")], opened, ""),
            ([QUORELSQL, "-c", call.format(port, self.trust, "elsewhere")], refused, ""),
            ([QUORELSQL, "-c", call.format(port, self.trust, "")], opened,
             warning.replace("xpcall", "quorelsql")),
            ([QUORELSQL, "-c", select], " status\n--------\n      0\n(1 row)\n\n", ""),
            ([XPCALL, "xp_startsmtp", *any_name], opened, warning),
            ([XPCALL, "xp_startsmtp", *arguments], "", "xpcall: xp_startsmtp: parameter 11 (cert_name)"),
            ([XPCALL, "xp_startsmtp", *arguments[:-1], "/nowhere", *any_name[-3:]], refused, warning),
        ):
            done = subprocess.run(command, capture_output=True, text=True, timeout=60,
                                  env={**os.environ, "QUOREL_LIBRARY": LIBRARY})
            self.assertTrue(done.stdout.startswith(said), done)
            self.assertTrue(done.stderr.startswith(warned), done)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
