"""Mail to another host: two network namespaces joined by a virtual cable, with IPv4 alone, IPv6
alone, and both. The namespaces belong to this program's processes and vanish with them.

    netns_test.py LIBRARY HOSTCALL

Exits with 77, saying why, where the machine does not allow such namespaces.
"""
import os
import subprocess
import sys
import tempfile
import time

from hostcall import call, mail, start, stop

SKIPPED = 77
PORT, CLOSED_PORT = 2500, 2501
TIMEOUT, PATIENCE = 1, 60  # seconds; the second where the answer comes, on a busy machine too

# A mail server that says who called, and reads no message.
PEER = f"""
import socket
kept = []
def serve(connection, address):
    print(address[0].replace("::ffff:", ""), flush=True)
    connection.sendall(b"220 far\\r\\n")
    for line in connection.makefile("rb"):
        connection.sendall(b"354 go on\\r\\n" if line == b"DATA\\r\\n" else b"250 well\\r\\n")
        if line == b"DATA\\r\\n":
            return kept.append(connection)
server = socket.create_server(("::", {PORT}), family=socket.AF_INET6, dualstack_ipv6=True)
print("listening", flush=True)
while True:
    serve(*server.accept())
"""

HOSTS = "192.0.2.2 peer.test\n2001:db8::2 peer.test\n127.0.0.1 localhost\n"
IPV4 = {"near": ["192.0.2.1/24"], "far": ["192.0.2.2/24"]}
IPV6 = {"near": ["2001:db8::1/64", "fe80::1/64"], "far": ["2001:db8::2/64", "fe80::2/64"]}

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
    "both": ({side: IPV4[side] + IPV6[side] for side in IPV4}, [
        ("peer.test", PORT, 0, False, "2001:db8::1"),
        ("192.0.2.2", PORT, 0, False, "192.0.2.1"),
        ("fe80::2%near", PORT, 0, False, "fe80::1"),
    ]),
}


def lay_cable(addresses):
    """Makes this process's namespace the near host. Says why it cannot."""
    commands = ["mount -t tmpfs none /run", f"printf '{HOSTS}' >/run/hosts",
                "mount --bind /run/hosts /etc/hosts", "ip netns add far",
                "ip link add near type veth peer name far netns far"]
    for side, ip in ("near", "ip"), ("far", "ip -n far"):
        commands += [f"{ip} link set lo up", f"{ip} link set {side} addrgenmode none up"]
        for address in addresses[side]:
            # Frames to a station that is not there: packets that nobody answers.
            nobody = address.split("/")[0][:-1] + "9"
            commands += [f"{ip} address add {address} dev {side}{' nodad' * (':' in address)}",
                         f"{ip} neighbour replace {nobody} lladdr 02:00:00:00:00:99 dev {side}"]
    return subprocess.run(["sh", "-ec", "\n".join(commands)], capture_output=True, text=True).stderr


def inside(addresses, cases):
    if reason := lay_cable(addresses):
        print("skipped:", reason)
        return SKIPPED
    peer = subprocess.Popen(["ip", "netns", "exec", "far", sys.executable, "-c", PEER], text=True,
                            stdout=subprocess.PIPE)
    peer.stdout.readline()
    for host, port, status, waits, caller in cases:
        begin, timeout = time.monotonic(), TIMEOUT if waits else PATIENCE
        assert call(start(port, host=host, timeout=timeout), stop()) == [status, 0], host
        assert (time.monotonic() - begin >= timeout) == waits, host
        assert caller is None or peer.stdout.readline().strip() == caller, host
    if len(addresses["near"]) > 2:
        with tempfile.NamedTemporaryFile() as attached:
            attached.truncate(50 << 20)
            assert call(start(PORT, host="192.0.2.2", timeout=TIMEOUT),
                        mail("bob@b.test", file=attached.name), stop()) == [0, 101, 0]
    return 0


def main():
    if sys.argv[-1] in NETWORKS:
        return inside(*NETWORKS[sys.argv[-1]])
    user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    for name in NETWORKS:
        code = subprocess.run(["unshare", *user, "--net", "--mount", "--pid", "--kill-child", "--fork",
                               sys.executable, *sys.argv, name]).returncode
        if code != 0:
            return code
    return 0


if __name__ == "__main__":
    sys.exit(main())
