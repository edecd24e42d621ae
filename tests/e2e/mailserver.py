"""A mail server that others wrote, for the tests."""
import asyncio
import threading

from aiosmtpd.smtp import SMTP


class Server:
    """aiosmtpd on a loopback port, in a thread; keeps (sender, recipients, bytes) per message
    and counts the QUITs."""

    def __init__(self, **options):
        self.messages = []
        self.quits = 0
        self.loop = asyncio.new_event_loop()
        self.server = self.loop.run_until_complete(self.loop.create_server(
            lambda: SMTP(self, hostname="mail.test", loop=self.loop, **options), "127.0.0.1", 0))
        self.port = self.server.sockets[0].getsockname()[1]
        self.thread = threading.Thread(target=self.loop.run_forever)
        self.thread.start()

    async def handle_DATA(self, server, session, envelope):
        self.messages.append((envelope.mail_from, envelope.rcpt_tos, envelope.original_content))
        return "250 OK"

    async def handle_QUIT(self, server, session, envelope):
        self.quits += 1
        return "221 Bye"

    def close(self):
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join()
        self.server.close()
        pending = asyncio.all_tasks(self.loop)
        for task in pending:
            task.cancel()
        if pending:
            self.loop.run_until_complete(asyncio.wait(pending))
        self.loop.close()
