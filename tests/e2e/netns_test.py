#!/usr/bin/python3
"""netns_test.py NETPROBE

Runs netprobe against a peer on another host: two network namespaces joined by a virtual cable, with
IPv4 alone, IPv6 alone, and both. The namespaces belong to this program's processes and vanish with
them. Exits with 77, saying why, where the machine does not allow such namespaces.
"""

import os
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
PORT = 2500
CLOSED_PORT = 2501
SCOPE = 100  # index of the near end of the cable
TIMEOUT_MS = 1000
ECONNREFUSED, ENETUNREACH, ETIMEDOUT = 111, 101, 110

# A greeting at once, then silence: what is sent to it is never read. Ends with its standard input.
PEER = f"""
import select, socket, sys
server = socket.create_server(("::", {PORT}), family=socket.AF_INET6, dualstack_ipv6=True)
print("listening", flush=True)
kept = []
while sys.stdin not in select.select([server, sys.stdin], [], [])[0]:
    kept.append(server.accept()[0])
    kept[-1].sendall(b"220 ")
"""

HOSTS = "192.0.2.2 peer.test\n2001:db8::2 peer.test\n127.0.0.1 localhost\n"
IPV4 = {"near": ["192.0.2.1/24"], "far": ["192.0.2.2/24"]}
IPV6 = {"near": ["2001:db8::1/64", "fe80::1/64"], "far": ["2001:db8::2/64", "fe80::2/64"]}
BOTH = {side: IPV4[side] + IPV6[side] for side in IPV4}

ok = "connect=0/0 peer={} recv=4/0"
refused = f"connect=-1/{ECONNREFUSED}"
unreachable = f"connect=-1/{ENETUNREACH}"
timed_out = f"connect=-1/{ETIMEDOUT}/timed-out"

# What a network has; then host, port, bytes to send, and what netprobe reports.
NETWORKS = {
    "IPv4 alone": (IPV4, [
        ("peer.test", PORT, 0, ok.format("192.0.2.2")),
        ("2001:db8::2", PORT, 0, unreachable),
        ("192.0.2.2", CLOSED_PORT, 0, refused),
        ("192.0.2.9", PORT, 0, timed_out),
    ]),
    "IPv6 alone": (IPV6, [
        ("peer.test", PORT, 0, ok.format("2001:db8::2")),
        ("192.0.2.2", PORT, 0, unreachable),
        ("2001:db8::2", CLOSED_PORT, 0, refused),
        ("2001:db8::9", PORT, 0, timed_out),
    ]),
    "both": (BOTH, [
        ("peer.test", PORT, 0, ok.format("2001:db8::2")),
        ("192.0.2.2", PORT, 0, ok.format("192.0.2.2")),
        ("fe80::2%near", PORT, 0, ok.format(f"fe80::2%{SCOPE}")),
        ("192.0.2.2", PORT, 50_000_000,
         ok.format("192.0.2.2") + f" send=-1/{ETIMEDOUT}/timed-out"),
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
        self.ip("near", f"link add near index {SCOPE} type veth peer name far")
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
        process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        process.stdout.readline()
        return process

    def ip(self, side, arguments):
        prefix = self.enter_far if side == "far" else []
        subprocess.run([*prefix, "ip", *arguments.split()], check=True)

    def close(self):
        self.ip("near", "link delete near")
        for process in (self.peer, self.far):
            process.communicate()


def check(network_name, netprobe, host, port, to_send, expected):
    said = subprocess.run([netprobe, host, str(port), str(TIMEOUT_MS), str(to_send)], timeout=60,
                          capture_output=True, text=True)
    report = said.stdout.strip()
    good = said.returncode == 0 and report == expected
    print("ok  " if good else "FAIL", f"{network_name}: {host} {port}: {report}")
    if not good:
        print(f"     expected {expected}\n{said.stderr}")
    return good


def inside(netprobe):
    with tempfile.NamedTemporaryFile("w") as hosts:
        hosts.write(HOSTS)
        hosts.flush()
        subprocess.run(["mount", "--bind", hosts.name, "/etc/hosts"], check=True)
        good = True
        for name, (addresses, cases) in NETWORKS.items():
            network = Network(addresses)
            try:
                for case in cases:
                    good &= check(name, netprobe, *case)
            finally:
                network.close()
    return 0 if good else 1


def main():
    if sys.argv[1] == "--inside":
        return inside(sys.argv[2])
    reason = why_not()
    if reason is not None:
        print("skipped:", reason)
        return SKIPPED
    return subprocess.run(isolated(sys.executable, __file__, "--inside", sys.argv[1])).returncode


if __name__ == "__main__":
    sys.exit(main())
