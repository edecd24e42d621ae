"""Mail to another host: two network namespaces joined by a virtual cable, with IPv4 alone, IPv6
alone, and both. The namespaces belong to this program's processes and vanish with them.

    netns_test.py LIBRARY HOSTCALL

Exits with 77, saying why, where the machine does not allow such namespaces.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import time

from hostcall import call, mail, start, stop

SKIPPED = 77
PORT, CLOSED_PORT = 2500, 2501
TIMEOUT = 1  # seconds

# A mail server that says who called, and reads no message. Ends with its standard input.
PEER = f"""
import socket, sys, threading
def serve(connection, address):
    print(address[0].replace("::ffff:", ""), flush=True)
    connection.sendall(b"220 far\\r\\n")
    for line in connection.makefile("rb"):
        connection.sendall(b"354 go on\\r\\n" if line == b"DATA\\r\\n" else b"250 well\\r\\n")
        if line == b"DATA\\r\\n":
            return kept.append(connection)
kept = []
server = socket.create_server(("::", {PORT}), family=socket.AF_INET6, dualstack_ipv6=True)
print("listening", flush=True)
threading.Thread(target=lambda: [serve(*server.accept()) for _ in iter(int, 1)], daemon=True).start()
sys.stdin.read()
"""

HOSTS = "192.0.2.2 peer.test\n2001:db8::2 peer.test\n127.0.0.1 localhost\n"
IPV4 = {"near": ["192.0.2.1/24"], "far": ["192.0.2.2/24"]}
IPV6 = {"near": ["2001:db8::1/64", "fe80::1/64"], "far": ["2001:db8::2/64", "fe80::2/64"]}
BOTH = {side: IPV4[side] + IPV6[side] for side in IPV4}

# What a network has; then host, port, the status of a start, whether that takes the time-out, and
# from where the peer is called.
NETWORKS = {
    "IPv4 alone": (IPV4, [
        ("peer.test", PORT, 0, False, "192.0.2.1"),
        ("2001:db8::2", PORT, 100, False, None),
        ("192.0.2.2", CLOSED_PORT, 100, False, None),
        ("192.0.2.9", PORT, 100, True, None),
    ]),
    "IPv6 alone": (IPV6, [
        ("peer.test", PORT, 0, False, "2001:db8::1"),
        ("192.0.2.2", PORT, 100, False, None),
        ("2001:db8::2", CLOSED_PORT, 100, False, None),
        ("2001:db8::9", PORT, 100, True, None),
    ]),
    "both": (BOTH, [
        ("peer.test", PORT, 0, False, "2001:db8::1"),
        ("192.0.2.2", PORT, 0, False, "192.0.2.1"),
        ("fe80::2%near", PORT, 0, False, "fe80::1"),
    ]),
}


def isolated(*command):
    """The command line that runs `command` in namespaces of its own."""
    user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    return ["unshare", *user, "--net", "--mount", "--kill-child", "--fork", *command]


def why_not():
    for tool in ("unshare", "nsenter", "ip", "mount"):
        if shutil.which(tool) is None:
            return f"{tool} is not installed"
    trial = subprocess.run(
        isolated("sh", "-c", "ip link add near type veth peer name far && "
                             "ip address add 2001:db8::1/64 dev near && "
                             "mount --bind /etc/hosts /etc/hosts"),
        capture_output=True, text=True)
    return trial.stderr.strip() if trial.returncode != 0 else None


class Network:
    """This process's namespace as the near host, a far one, and the cable between them."""

    def __init__(self, addresses):
        self.far = self.start("unshare", "--net", "sh", "-c", "echo up; exec cat")
        self.enter_far = ["nsenter", f"--net=/proc/{self.far.pid}/ns/net"]
        self.ip("near", "link add near type veth peer name far")
        self.ip("near", f"link set far netns {self.far.pid}")
        for side in ("near", "far"):
            self.ip(side, "link set dev lo up")
            self.ip(side, f"link set dev {side} addrgenmode none up")
            for address in addresses[side]:
                self.ip(side, f"address add {address} dev {side}"
                              + (" nodad" if ":" in address else ""))
                # Frames to a station that is not there: packets that nobody answers.
                network = address.split("/")[0][:-1]
                self.ip(side, f"neighbour replace {network}9 lladdr 02:00:00:00:00:99 dev {side}")
        self.peer = self.start(*self.enter_far, sys.executable, "-c", PEER)

    @staticmethod
    def start(*command):
        """Starts what ends with its standard input, and waits until it says that it is up."""
        process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        process.stdout.readline()
        return process

    def ip(self, side, arguments):
        prefix = self.enter_far if side == "far" else []
        subprocess.run([*prefix, "ip", *arguments.split()], check=True)

    def check(self, host, port, status, waits, caller):
        begin = time.monotonic()
        assert call(start(port, host=host, timeout=TIMEOUT), stop()) == [status, 0], host
        took = time.monotonic() - begin
        assert (took >= TIMEOUT) == waits, (host, took)
        if caller is not None:
            assert self.peer.stdout.readline().strip() == caller, host

    def close(self):
        self.ip("near", "link delete near")
        for process in (self.peer, self.far):
            process.communicate()


def inside():
    with tempfile.NamedTemporaryFile("w") as hosts, tempfile.NamedTemporaryFile() as attached:
        hosts.write(HOSTS)
        hosts.flush()
        attached.truncate(50 << 20)
        subprocess.run(["mount", "--bind", hosts.name, "/etc/hosts"], check=True)
        for addresses, cases in NETWORKS.values():
            network = Network(addresses)
            for case in cases:
                network.check(*case)
            if addresses is BOTH:
                assert call(start(PORT, host="192.0.2.2", timeout=TIMEOUT),
                            mail("bob@b.test", file=attached.name), stop()) == [0, 101, 0]
            network.close()


if __name__ == "__main__":
    if sys.argv[-1] == "--inside":
        sys.exit(inside())
    reason = why_not()
    if reason is not None:
        print("skipped:", reason)
        sys.exit(SKIPPED)
    sys.exit(subprocess.run(isolated(sys.executable, *sys.argv, "--inside")).returncode)
