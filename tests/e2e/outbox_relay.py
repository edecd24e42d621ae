"""outbox_relay.py PORT FILE: a mail server that keeps its promise: what it takes stands in FILE, a line
of JSON a message, before it says so. Recipients at refused.test are refused for good, those at
later.test and mails with a subject of "later" for now."""
import asyncio
import email
import hashlib
import json
import os
import sys

from aiosmtpd.smtp import SMTP


class Handler:
    def __init__(self, file):
        self.file = file

    async def handle_RCPT(self, server, session, envelope, address, options):
        if address.endswith("@refused.test"):
            return "550 nobody here"
        if address.endswith("@later.test"):
            return "451 come again"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        message = email.message_from_bytes(envelope.content)
        if message["Subject"] == "later":
            return "451 come again"
        line = {"id": message["Message-ID"], "to": envelope.rcpt_tos, "subject": message["Subject"],
                "attached": [hashlib.sha256(part.get_payload(decode=True)).hexdigest()
                             for part in message.walk() if part.get_filename()]}
        os.write(self.file, json.dumps(line).encode() + b"\n")
        return "250 OK"


async def main(port, path):
    handler = Handler(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND))
    loop = asyncio.get_running_loop()
    server = await loop.create_server(
        lambda: SMTP(handler, hostname="relay.test", loop=loop, data_size_limit=1 << 30), "127.0.0.1", port)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


if __name__ == "__main__":
    asyncio.run(main(int(sys.argv[1]), sys.argv[2]))
