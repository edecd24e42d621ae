"""What the scripts share."""
import os
import tempfile
import unittest

from mailserver import Server


class Case(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents if isinstance(contents, bytes) else contents.encode())
        return self.path(name)

    def serve(self, **options):
        server = Server(**options)
        self.addCleanup(server.close)
        return server
