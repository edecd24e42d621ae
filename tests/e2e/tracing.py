"""The system calls of a process, as strace sees them."""
import collections
import os
import re
import shutil
import subprocess
import tempfile


def usable():
    """Whether this machine lets strace trace."""
    return shutil.which("strace") is not None and subprocess.run(
        ["strace", "-o", os.devnull, "true"], capture_output=True, check=False).returncode == 0


def calls_between_outputs(command, text, **environment):
    """The counts of the calls, by name, that the process made between one write to its standard
    output and the next, and what it wrote.

    What waiting takes is left out: poll, and the reads of a socket that had nothing yet, with one
    look at the clock for each.
    """
    with tempfile.NamedTemporaryFile("r") as log:
        done = subprocess.run(["strace", "-f", "-qq", "-o", log.name, *command], input=text, text=True,
                              timeout=60, capture_output=True, check=True,
                              env={**os.environ, **environment})
        counts, between = [], collections.Counter()
        for row in log:
            name, arguments = re.match(r"\d+ +(\w+)\((.*)", row).groups()
            if name == "write" and arguments.startswith("1,"):
                counts.append(+between)
                between.clear()
            elif " EAGAIN " in arguments:
                between["times"] -= 1
            elif name != "poll" and not (name == "read" and arguments.startswith("0,")):
                between[name] += 1
        return counts, done.stdout
