"""Certificates of an authority made on the spot, by the openssl program."""
import os
import subprocess

KEYS = {"rsa": ["rsa_keygen_bits:2048"], "ec": ["ec_paramgen_curve:P-256"]}


def openssl(*arguments):
    subprocess.run(["openssl", *arguments], check=True, capture_output=True, timeout=60)


class Authority:
    """Keeps its files in `folder`; `file` is its own certificate, what clients are told to trust."""

    def __init__(self, folder, name="authority"):
        self._base = os.path.join(folder, name)
        self.file = self._base + ".pem"
        self._key = self._base + ".key"
        self._make_key(self._key, "ec")
        openssl("req", "-x509", "-key", self._key, "-out", self.file, "-days", "2",
                "-subj", f"/O=Quorel/CN={name}", "-addext", "keyUsage=critical,keyCertSign")

    @staticmethod
    def _make_key(file, kind):
        openssl("genpkey", "-algorithm", kind.upper(), "-out", file,
                *(word for option in KEYS[kind] for word in ("-pkeyopt", option)))

    def issue(self, label, kind="ec", subject="/O=Example/OU=Mail/CN=mail", days=2,
              names="DNS:localhost,DNS:*.wild.test", usage="serverAuth"):
        """The file of a new server certificate and its key. `days` below 0: it has expired."""
        base = f"{self._base}-{label}"
        self._make_key(base + ".pem", kind)
        with open(base + ".ext", "w") as extensions:
            extensions.write(f"subjectAltName={names}\nextendedKeyUsage={usage}\n")
        openssl("req", "-new", "-key", base + ".pem", "-subj", subject, "-out", base + ".csr")
        openssl("x509", "-req", "-in", base + ".csr", "-CA", self.file, "-CAkey", self._key,
                "-CAcreateserial", "-days", str(days), "-extfile", base + ".ext",
                "-out", base + ".crt")
        with open(base + ".pem", "a") as both, open(base + ".crt") as certificate:
            both.write(certificate.read())
        return base + ".pem"
