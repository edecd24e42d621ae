#!/usr/bin/python3
"""demo_postgres.py BUILD: the procedures in a PostgreSQL server of the word size of a build folder.

The server is made for this, in a folder of its own, and goes with it. A 32-bit one has the library in its
own processes. Its mail goes to the server of demo_mail.py. What comes back is compared; a difference fails.
"""
import email
import email.policy
import os
import subprocess
import sys
import tempfile

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tests/postgres"))
from certificates import Authority  # noqa: E402
from demo_mail import Server  # noqa: E402
from scratchserver import server_with_extension  # noqa: E402

SCRIPT = r"""
\pset footer off
CREATE EXTENSION quorel;

-- A table of files, read by one statement.
CREATE TABLE files AS
    SELECT name, xp_read_file(name) AS contents
    FROM (VALUES ('/etc/passwd'), ('/etc/debian_version'), ('/no/such/file')) AS names (name);
SELECT name, length(contents) AS bytes FROM files;

-- A command, and what its status means.
SELECT status, xp_status('xp_cmdshell', status) FROM xp_cmdshell('exit 126') AS status;

-- Nobody else may, until the administrator says so.
CREATE ROLE clerk;
SET ROLE clerk;
SELECT xp_cmdshell('id');
RESET ROLE;

-- A mail whose text is a query's result, over TLS.
SELECT xp_startsmtp(sender => 'ann@a.test', host => '127.0.0.1', port => :port,
                    auth_username => 'ann', auth_password => 'not a secret',
                    trusted_cert => :'trust', cert_name => 'mail.a.test') AS started;
SELECT xp_sendmail(recipient => 'bob@b.test', subject => 'Files',
                   message => (SELECT string_agg(name || ': ' || length(contents), E'\n' ORDER BY name)
                               FROM files WHERE contents IS NOT NULL)) AS sent;
SELECT xp_stopsmtp() AS stopped;
"""


def main():
    build = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder, server_with_extension(32, build, build) as server:
        authority = Authority(folder)
        mail = Server(authority.issue("server", names="DNS:mail.a.test"))
        trust = os.path.join(server.files, "trusted.pem")
        with open(authority.file, "rb") as source, open(trust, "wb") as target:
            target.write(source.read())
        subprocess.run(["psql", "-X", "-a", "-q", "-h", server.folder, "-U", "postgres",
                        "-v", f"port={mail.port}", "-v", f"trust={trust}"],
                       input=SCRIPT.strip() + "\n", text=True, check=True, timeout=60,
                       stderr=subprocess.STDOUT)
        [((cipher, protocol, _), _, _, data)] = mail.messages
    message = email.message_from_bytes(data, policy=email.policy.default)
    text = message.get_content().strip()
    print(f"\nWhat the mail server received over {protocol} ({cipher}):\n{text}")
    wanted = [f"{name}: {os.path.getsize(name)}" for name in ("/etc/debian_version", "/etc/passwd")]
    return 0 if text.splitlines() == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
