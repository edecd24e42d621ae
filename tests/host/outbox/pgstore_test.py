"""Runs a test program of the outbox's store with a PostgreSQL server of its own."""
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../postgres"))
from scratchserver import ScratchServer  # noqa: E402

with ScratchServer(64) as server:
    environment = os.environ | {"QUOREL_TEST_SERVER": f"host={server.folder} user=postgres"}
    sys.exit(subprocess.run([sys.argv[1]], env=environment).returncode)
