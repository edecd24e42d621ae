"""smtplib_mail.py PORT COUNT: sends COUNT messages of 1 KB over one smtplib connection."""
import smtplib
import sys

TEXT = "From: ann@a.test\r\nTo: bob@b.test\r\nSubject: Hi\r\n\r\n" + "b" * 1024 + "\r\n"

with smtplib.SMTP("127.0.0.1", int(sys.argv[1]), local_hostname="client.test") as client:
    for _ in range(int(sys.argv[2])):
        client.sendmail("ann@a.test", ["bob@b.test"], TEXT)
