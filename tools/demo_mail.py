#!/usr/bin/python3
"""demo_mail.py QUORELSQL LIBRARY: SQL sends a message with a file through a mail server.

The server is aiosmtpd, on a port of this machine that nobody else reaches. What it received is parsed
with Python's email package and compared with what was sent; a difference fails.
"""
import asyncio
import email
import email.policy
import hashlib
import subprocess
import sys
import threading

from aiosmtpd.smtp import SMTP

QUORELSQL, LIBRARY = sys.argv[1:3]
ATTACHED = "/etc/passwd"
SCRIPT = """
CALL xp_startsmtp(sender => 'ann@a.test', host => '127.0.0.1', port => {port}, sender_name => 'Ann');
CALL xp_sendmail(recipient => 'bob@b.test;eve@e.test', subject => 'Grüße from SQL',
                 message => 'The file is attached.', include_file => '{file}');
CALL xp_stopsmtp();
"""


class Server:
    """Keeps the messages it is given."""

    def __init__(self):
        self.messages = []
        self.loop = asyncio.new_event_loop()
        server = self.loop.run_until_complete(self.loop.create_server(
            lambda: SMTP(self, loop=self.loop), "127.0.0.1", 0))
        self.port = server.sockets[0].getsockname()[1]
        threading.Thread(target=self.loop.run_forever, daemon=True).start()

    async def handle_DATA(self, _server, _session, envelope):
        self.messages.append((envelope.rcpt_tos, envelope.original_content))
        return "250 OK"


def digest(data):
    return hashlib.sha256(data).hexdigest()


def main():
    server = Server()
    script = SCRIPT.format(port=server.port, file=ATTACHED).strip()
    print(script, flush=True)
    subprocess.run([QUORELSQL, "--lib", LIBRARY, "-c", script], check=True, timeout=60,
                   env={"LC_ALL": "C.UTF-8", "PATH": "/usr/bin:/bin"})
    [(recipients, data)] = server.messages
    message = email.message_from_bytes(data, policy=email.policy.default)
    text, attachment = message.iter_parts()
    with open(ATTACHED, "rb") as file:
        wanted = digest(file.read())
    received = digest(attachment.get_payload(decode=True))
    print("\nWhat the server received, for", " and ".join(recipients))
    for name in ("From", "To", "Subject", "X-Mailer"):
        print(f"  {name}: {message[name]}")
    print("  text:", text.get_payload(decode=True).decode().strip())
    print(f"  attachment: {attachment.get_filename()}, sha256 {received[:16]}…,",
          "that of the file" if received == wanted else "NOT that of the file")
    good = (received == wanted and attachment.get_filename() == "services"
            and message["Subject"] == "Grüße from SQL"
            and recipients == ["bob@b.test", "eve@e.test"])
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
