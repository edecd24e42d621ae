"""Mail over TLS: servers that others wrote, bad certificates, servers that go away.

    starttls_test.py LIBRARY HOSTCALL PROVIDER

PROVIDER is the provider library that the library finds where it lies.
"""
import logging
import os
import re
import resource
import shutil
import socket
import ssl
import struct
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from aiosmtpd.smtp import AuthResult, LoginPassword  # noqa: E402
from certificates import Authority  # noqa: E402
from cases import Case  # noqa: E402
import hostcall  # noqa: E402
from hostcall import HOSTCALL, LIBRARY  # noqa: E402
import tracing  # noqa: E402

PROVIDER = os.path.abspath(sys.argv[3])
logging.disable()  # the servers' complaints about the handshakes that fail here
SESSION = 7  # without a number, there would be no TLS
STOP = hostcall.stop(SESSION)


def start(port, **options):
    return hostcall.start(port, session=SESSION, **options)


def mail(**options):
    return hostcall.mail("bob@b.test", session=SESSION, **options)


def call(*lines, **options):
    # A session that was started leaves a small record behind by design.
    return hostcall.call(*lines, ASAN_OPTIONS="detect_leaks=0", **options)


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


class Tls(Case):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.authority = Authority(folder.name)
        cls.trust = cls.authority.file
        cls.certificate = cls.authority.issue("ec")
        cls.context = server_context(cls.certificate)

    def serve(self, context, **options):
        return super().serve(tls_context=context, require_starttls=context is not None, **options)

    def file_of(self, size):
        return self.write(str(size), bytes(range(256)) * (size // 256))


class Delivery(Tls):
    LOGIN = {
        "auth_required": True,
        "authenticator": lambda server, session, envelope, mechanism, data: AuthResult(
            success=data == LoginPassword(b"ann", "söcret".encode()), handled=False),
    }

    def send(self, server, **options):
        self.assertEqual(call(start(server.port, **options),
                              mail(body="Grüße\r\n.\r\n..dots\r\n" * 100, file=self.file_of(512000)),
                              mail(subject="Grüße"), STOP), [0, 0, 0, 0])
        # The date and the boundary differ from message to message.
        return [re.sub(rb"(?m)^Date: .*|_MIME_[0-9_]+", b"", message)
                for _, _, message in server.messages]

    def test_is_what_clear_text_delivers(self):
        wanted = self.send(self.serve(None))
        for certificate, version in ((self.authority.issue("rsa", "rsa"), ssl.TLSVersion.TLSv1_2),
                                     (self.certificate, ssl.TLSVersion.TLSv1_3)):
            with self.subTest(version=version):
                server = self.serve(server_context(certificate, version), **self.LOGIN)
                self.assertEqual(wanted, self.send(server, trust=self.trust, user="ann",
                                                   password="söcret", name="localhost"))

    @unittest.skipIf(os.environ.get("QUOREL_SANITIZE"), "a sanitizer makes calls of its own")
    @unittest.skipUnless(tracing.usable(), "strace may not trace here")
    def test_costs_no_system_calls_but_those_that_move_bytes(self):
        small, large = mail(body="text\r\n" * 170), mail(file=self.file_of(1 << 20))
        for context, options in (None, {}), (self.context, {"trust": self.trust}):
            calls = [start(self.serve(context).port, **options), small, small, large, large, STOP]
            counts, said = tracing.calls_between_outputs([HOSTCALL, LIBRARY], "\n".join(calls) + "\n")
            self.assertEqual(said.split(), ["0"] * 6)
            _, message, _, attached = (sorted(each.values(), reverse=True) for each in counts[1:5])
            self.assertEqual(message, [4, 4], "sends, and receives")
            self.assertLessEqual(sum(attached), 52, counts)

    @unittest.skipIf(os.environ.get("QUOREL_SANITIZE"), "a sanitizer has memory of its own")
    def test_holds_160_KiB_a_session_at_rest(self):
        port, file = self.serve(self.context).port, self.file_of(1 << 20)
        sessions = [(hostcall.start(port, trust=self.trust, session=number),
                     hostcall.mail("bob@b.test", file=file, session=number)) for number in range(101)]
        said = call(*sessions[0], "memory", *sum(sessions[1:], ()), "memory",
                    *map(hostcall.stop, range(101)))
        before, after = said[2], said[203]
        self.assertEqual(said.count(0), 303, said[:9])
        self.assertLess(after - before, 100 * 160)


class Certificates(Tls):
    def test_decide(self):
        stranger = Authority(self.folder, "stranger")
        expired = self.authority.issue("expired", days=-1)
        for certificate, status, options in (
            (self.certificate, 0, {"company": "Example", "unit": "Mail", "name": "mail"}),
            (self.certificate, 105, {"company": "example"}),
            (self.certificate, 105, {"trust": stranger.file}),
            (expired, 105, {}),
        ):
            with self.subTest(os.path.basename(certificate), **options):
                server = self.serve(server_context(certificate))
                self.assertEqual(call(start(server.port, **{"trust": self.trust, **options}), STOP),
                                 [status, 0])


class BadServers(Tls):
    DIALOGUE = [("", "220 ready"), ("EHLO", "250 STARTTLS"), ("STARTTLS", "220 go ahead"),
                ("EHLO", "250 hello again"), ("MAIL", "250 ok"), ("RCPT", "250 ok"),
                ("DATA", "354 go on"), ("From:", "")]

    def converse(self, listener, steps, reset):
        """Answers one client until it has heard so many of its lines, and goes: by RST, or by FIN.

        What is left unread would make an RST of the FIN, so that is read until the client goes."""
        connection = listener.accept()[0]
        for number, (command, answer) in enumerate(self.DIALOGUE[:steps + 1]):
            line = b""
            while command and not line.endswith(b"\n") and (byte := connection.recv(1)):
                line += byte
            self.heard = line.startswith(command.encode())
            if not self.heard or number == steps:
                break
            connection.sendall(answer.encode() + b"\r\n")
            if command == "STARTTLS":
                if steps == number + 1:
                    break
                connection = self.context.wrap_socket(connection, server_side=True)
        if reset:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        else:
            connection.settimeout(60)
            try:
                connection.shutdown(socket.SHUT_WR)
                while connection.recv(1 << 20):
                    pass
            except OSError:  # the client has gone already
                pass
        connection.close()

    def test_that_go_away_end_the_call_wherever_that_is(self):
        # Two seconds of patience with a silent peer, and four for a busy machine. It waits asleep:
        # beyond what a session without a fault takes, it uses next to nothing.
        attached = self.file_of(5 << 20)
        used = spent()
        call(start(self.serve(self.context).port, trust=self.trust), mail(file=attached), STOP)
        healthy = spent() - used
        for steps, statuses in ((1, [104, 25, 0]), (3, [105, 25, 0]), (4, [0, 104, 0]),
                                (7, [0, 104, 0])):
            for reset in False, True:
                with self.subTest(steps=steps, reset=reset), \
                        socket.create_server(("127.0.0.1", 0)) as listener:
                    port = listener.getsockname()[1]
                    thread = threading.Thread(target=self.converse, args=(listener, steps, reset))
                    thread.start()
                    begun, used = time.monotonic(), spent()
                    self.assertEqual(call(start(port, trust=self.trust), mail(file=attached), STOP),
                                     statuses)
                    took, used = time.monotonic() - begun, spent() - used
                    thread.join(60)
                    self.assertTrue(self.heard)
                    self.assertLess(took, 4)
                    self.assertLess(used, 2 * healthy + 0.05 * took)


class Providers(Tls):
    def test_come_from_beside_the_library_or_not_at_all(self):
        library = shutil.copy(LIBRARY, self.folder)
        elsewhere = self.path("elsewhere")
        os.mkdir(elsewhere)
        shutil.copy(PROVIDER, elsewhere)
        calls = start(self.serve(self.context).port, trust=self.trust), STOP
        self.assertEqual(call(*calls, library=library, cwd=elsewhere, LD_LIBRARY_PATH=elsewhere,
                              PATH=elsewhere), [15, 0])
        shutil.copy(PROVIDER, self.folder)
        self.assertEqual(call(*calls, library=library), [0, 0])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
