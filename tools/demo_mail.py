#!/usr/bin/python3
"""demo_mail.py QUORELSQL LIBRARY: SQL sends a message with a file through a mail server, over TLS.

The server is aiosmtpd, on a port of this machine that nobody else reaches, with a certificate of an
authority that is made on the spot. It takes mail only over TLS and from who logs in. What it received
is parsed with Python's email package and compared with what was sent; a difference fails.
"""
import asyncio
import email
import email.policy
import hashlib
import logging
import os
import ssl
import subprocess
import sys
import tempfile
import threading

from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword

from certificates import Authority

ATTACHED = "/etc/passwd"
SCRIPT = """
CALL xp_startsmtp(sender => 'ann@a.test', host => '127.0.0.1', port => {port}, sender_name => 'Ann',
                  auth_username => 'ann', auth_password => 'not a secret',
                  trusted_cert => '{trust}', cert_name => 'mail.a.test');
CALL xp_sendmail(recipient => 'bob@b.test;eve@e.test', subject => 'Grüße from SQL',
                 message => 'The file is attached.', include_file => '{file}');
CALL xp_stopsmtp();
"""


class Server:
    """Keeps the messages it is given, and what protected them on their way: TLS, where it has a
    certificate."""

    def __init__(self, certificate=None, port=0):
        logging.disable(logging.WARNING)  # aiosmtpd's hints for who writes servers
        self.messages = []
        self.options = {}
        if certificate is not None:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(certificate)
            self.options = {"tls_context": context, "require_starttls": True, "auth_required": True,
                            "authenticator": self.log_in}
        self.loop = asyncio.new_event_loop()
        server = self.loop.run_until_complete(self.loop.create_server(
            self.new_connection, "127.0.0.1", port))
        self.port = server.sockets[0].getsockname()[1]
        threading.Thread(target=self.loop.run_forever, daemon=True).start()

    def new_connection(self):
        return SMTP(self, hostname="mail.test", loop=self.loop, **self.options)

    @staticmethod
    def parse(data):
        return email.message_from_bytes(data, policy=email.policy.default)

    @staticmethod
    def log_in(_server, _session, _envelope, mechanism, data):
        right = mechanism == "PLAIN" and data == LoginPassword(b"ann", b"not a secret")
        return AuthResult(success=right, handled=False, auth_data="ann")

    async def handle_DATA(self, server, session, envelope):
        secured = server.transport.get_extra_info("cipher")
        self.messages.append((secured, session.auth_data, envelope.rcpt_tos, envelope.original_content))
        return "250 OK"


def digest(data):
    return hashlib.sha256(data).hexdigest()


def main():
    quorelsql, library = sys.argv[1:3]
    folder = tempfile.TemporaryDirectory()
    authority = Authority(folder.name)
    server = Server(authority.issue("server", names="DNS:mail.a.test"))
    script = SCRIPT.format(port=server.port, file=ATTACHED, trust=authority.file).strip()
    print(script, flush=True)
    subprocess.run([quorelsql, "--lib", library, "-c", script], check=True, timeout=60,
                   env={"LC_ALL": "C.UTF-8", "PATH": "/usr/bin:/bin"})
    [((cipher, protocol, _), user, recipients, data)] = server.messages
    message = server.parse(data)
    text, attachment = message.iter_parts()
    with open(ATTACHED, "rb") as file:
        wanted = digest(file.read())
    received = digest(attachment.get_payload(decode=True))
    print(f"\nWhat the server received over {protocol} ({cipher}), from {user}, for",
          " and ".join(recipients))
    for name in ("From", "To", "Subject", "X-Mailer"):
        print(f"  {name}: {message[name]}")
    print("  text:", text.get_payload(decode=True).decode().strip())
    print(f"  attachment: {attachment.get_filename()}, sha256 {received[:16]}…,",
          "that of the file" if received == wanted else "NOT that of the file")
    good = (received == wanted and attachment.get_filename() == os.path.basename(ATTACHED)
            and message["Subject"] == "Grüße from SQL"
            and recipients == ["bob@b.test", "eve@e.test"])
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
