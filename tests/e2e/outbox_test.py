#!/usr/bin/python3
"""outbox_test.py PROGRAM LIBRARY [DATABASE]: what becomes of mail in the outbox, seen from outside."""
import os
import pathlib
import signal
import socket
import subprocess
import sys
import time
import unittest

from outbox_kit import Outbox, PostgresBox, SqliteBox, children, until

PROGRAM, LIBRARY = sys.argv[1:3]
BOX = PostgresBox if sys.argv[3:] == ["postgres"] else SqliteBox


class OutboxTest(unittest.TestCase):
    def setUp(self):
        self.outbox = Outbox(BOX, PROGRAM, LIBRARY)
        self.addCleanup(self.outbox.close)
        self.sql, self.queue = self.outbox.sql, self.outbox.queue

    def once(self, status=0):
        return self.outbox.run("--once", "--sessions", "2", "--retry", "0.01,0.02", "--probe", "0.2,0.4",
                               status=status)

    def why(self, state):
        return [row[0] for row in self.sql("SELECT why FROM {overview} WHERE state = ?", state)]

    def start(self, *options, **more):
        daemon = self.outbox.start(*options, **more)
        self.addCleanup(lambda: daemon.poll() is None and (daemon.kill(), daemon.wait()))
        return daemon

    def test_a_refused_recipient_fails_alone_and_the_others_have_theirs(self):
        self.queue("a@b.test, no@refused.test, c@b.test", bcc="d@b.test, nor@refused.test")
        self.once(1)
        self.assertEqual({"sent": 3, "failed": 2}, self.outbox.states())
        taken = self.outbox.relay.taken()
        self.assertEqual(["a@b.test", "c@b.test", "d@b.test"], sorted(to for m in taken for to in m["to"]))
        self.assertEqual(1, len({m["id"] for m in taken}))
        self.assertTrue(all("refused a recipient (status 20)" in why for why in self.why("failed")))

    def test_a_recipient_who_is_put_off_does_not_hold_up_the_others_for_long(self):
        self.queue("a@b.test, full@later.test, c@b.test", max_attempts=100)
        until(lambda: (self.once(1), self.outbox.states() == {"sent": 2, "queued": 1})[1], 20, "two mails")
        self.assertEqual(["a@b.test", "c@b.test"],
                         sorted(to for m in self.outbox.relay.taken() for to in m["to"]))

    def test_a_server_that_is_away_costs_no_attempt(self):
        self.outbox.queue_many(range(30))
        self.outbox.relay.kill()
        self.assertEqual(1, self.once(1).count("cannot be reached"))
        [(failures,)] = self.sql("SELECT failures FROM {account}")
        self.assertEqual(1, failures)
        self.outbox.relay.start()
        time.sleep(0.3)
        self.assertIn("account relay is back", self.once())
        self.assertEqual([(30, 30)], self.sql("SELECT count(*), sum(attempts) FROM {delivery}"))

    def test_the_next_account_is_used_while_the_first_is_away(self):
        self.sql("INSERT INTO {account} (name, host, port, sender, rank) VALUES "
                 "('first', '127.0.0.1', 1, 'eve@e.test', -1)")
        self.outbox.queue_many(range(5))
        self.once()
        self.assertEqual([("relay", 5)],
                         self.sql("SELECT account, count(*) FROM {attempt} GROUP BY account"))

    def test_attempts_end_with_words(self):
        for fields, words in (
                ({"subject": "later", "max_attempts": 2}, "(status 104); that was the last of 2 attempts"),
                ({"recipients": "grüße@b.test"}, "gr"),
                ({"due": "2020-01-01 00:00:00", "expires": "2020-01-02 00:00:00"}, "it expired before")):
            with self.subTest(fields):
                self.sql("DELETE FROM {message}")
                self.queue(**{"recipients": "a@b.test"} | fields)
                until(lambda: (self.once(1), self.outbox.states() == {"failed": 1})[1], 20, "a failure")
                self.assertIn(words, self.why("failed")[0])

    def test_one_that_does_not_go_holds_up_no_other(self):
        self.queue("a@b.test", "later", max_attempts=1000)
        self.outbox.queue_many(range(20))
        self.once(1)
        self.assertEqual({"sent": 20, "queued": 1}, self.outbox.states())

    def test_one_that_is_put_off_has_its_pauses_beside_any_others(self):
        """With sessions that stay busy, and with a next account that is away."""
        self.sql("INSERT INTO {account} (name, host, port, sender, rank) VALUES "
                 "('last', '127.0.0.1', 1, 'eve@e.test', 9)")
        self.start("--sessions", "1", "--retry", "60,60")
        self.outbox.queue_many(range(5))
        self.queue("a@later.test")
        for n in range(10, 300, 3):
            self.outbox.queue_many(range(n, n + 3))
        until(lambda: self.outbox.states() == {"sent": 296, "queued": 1}, 30, "all others")
        [(attempts,)] = self.sql("SELECT attempts FROM {delivery} WHERE state = 'queued'")
        self.assertLessEqual(attempts, 3)

    def test_a_password_file_that_others_can_read_is_not_used(self):
        file = os.path.join(self.outbox.folder, "password")
        with open(file, "w") as stream:
            stream.write("not a secret\n")
        os.chmod(file, 0o644)
        self.sql("UPDATE {account} SET username = 'ann', password_file = ?", file)
        self.queue("a@b.test")
        self.assertIn("others can read or change it", self.once(1))
        self.assertEqual({"queued": 1}, self.outbox.states())

    def test_a_limit_a_minute_is_kept(self):
        self.sql("UPDATE {account} SET per_minute = 3")
        self.outbox.queue_many(range(5))
        self.once(1)
        self.assertEqual(3, len(self.outbox.relay.taken()))

    def test_the_service_manager_hears_of_the_start_and_the_end(self):
        path = os.path.join(self.outbox.folder, "notify")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(path)
            manager.settimeout(20)
            daemon = self.start(env=dict(os.environ, NOTIFY_SOCKET=path))
            self.assertEqual(b"READY=1", manager.recv(99))
            daemon.send_signal(signal.SIGHUP)
            self.queue("a@b.test")
            until(lambda: self.outbox.states() == {"sent": 1}, 20, "a mail sent in spite of a SIGHUP")
            daemon.terminate()
            self.assertEqual(b"STOPPING=1", manager.recv(99))
            self.assertEqual(0, daemon.wait(20))

    @unittest.skipIf(BOX is SqliteBox, "a process that stops in a transaction holds up the file")
    def test_a_claim_that_was_lost_in_a_pause_is_not_ended_twice(self):
        self.outbox.queue_many(range(400))
        frozen = self.start("--sessions", "2")
        until(lambda: self.outbox.states().get("sent"), 20, "a beginning")
        stopped = [frozen.pid, *children(frozen.pid)]
        for pid in stopped:
            os.kill(pid, signal.SIGSTOP)
        self.start("--sessions", "2")
        until(lambda: self.outbox.states() == {"sent": 400}, 60, "another daemon to take over")
        for pid in stopped:
            os.kill(pid, signal.SIGCONT)
        frozen.terminate()
        self.assertEqual(0, frozen.wait(20))
        self.assertEqual({"sent": 400}, self.outbox.states())
        self.assertLessEqual(self.outbox.relay.copies(), 2)

    @unittest.skipIf(BOX is SqliteBox, "a file does not go away")
    def test_a_database_that_is_away_for_longer_than_a_lease_costs_no_copy(self):
        self.outbox.queue_many(range(2000))
        daemon = self.start()
        until(lambda: self.outbox.states().get("sent"), 20, "a beginning")
        self.outbox.box.kill()
        time.sleep(4)
        self.outbox.box.start()
        until(lambda: self.outbox.states() == {"sent": 2000}, 60, "the rest")
        daemon.terminate()
        self.assertEqual(0, daemon.wait(20))
        self.assertEqual(0, self.outbox.relay.copies())

    def test_it_tells_what_there_is(self):
        file = os.path.join(self.outbox.folder, "metrics")
        self.queue("a@b.test")
        self.queue("no@refused.test")
        self.outbox.run("--once", "--metrics", file, status=1)
        with open(file) as stream:
            metrics = stream.read()
        for line in ('deliveries{state="sent"} 1', 'ends_total{end="failed"} 1', "up 1",
                     'send_seconds_bucket{le="+Inf"} 1', 'account_failures{account="relay"} 0'):
            self.assertIn(f"quorel_outbox_{line}\n", metrics)
        status = self.outbox.run("--status")
        self.assertIn("1 sent, 1 failed", status)
        self.assertIn("mail 2, failed after 1 attempt, to no@refused.test: relay: ", status)

    def test_what_cannot_be_started_says_why(self):
        for options, words in ((("--sessions", "0"), "1 to 256"), (("--retry", "3"), "two numbers"),
                               (("--lease", "1"), "2 to 3600"), (("another.db",), "one outbox"),
                               (("--bad",), "--help")):
            self.assertIn(words, self.outbox.run(*options, status=2))
        self.outbox.box.where = os.path.join(self.outbox.folder, "none.db")
        self.assertRegex(self.outbox.run(status=3), "none.db|--install")

    def test_the_unit_stays_down_after_a_wrong_command_line(self):
        unit = pathlib.Path(__file__).resolve().parents[2] / "host/outbox/quorel-outbox@.service.in"
        self.assertIn("RestartPreventExitStatus=2\n", unit.read_text())
        nowhere = subprocess.run([self.outbox.program], env={}, stderr=subprocess.PIPE, timeout=120)
        self.assertEqual(2, nowhere.returncode)
        self.assertIn(b"usage:", nowhere.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
