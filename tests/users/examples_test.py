"""Runs every example against the receiver and reads what arrived with Python's own mail parser.

    examples_test.py DIRECTORY_OF_THE_EXAMPLES LIBRARY
"""
import os
import pathlib
import re
import subprocess
import sys
import unittest

from receiver import Receiver, Scratch, parse

EXAMPLES, LIBRARY = pathlib.Path(sys.argv[1]), sys.argv[2]


class Examples(Scratch):
    def run_example(self, name, server, *more, to=("ops@b",), status=0, password=None):
        environment = dict(os.environ)
        if password is not None:
            environment["MAIL_PASSWORD"] = password
        done = subprocess.run([EXAMPLES / name, "127.0.0.1", str(server.port), "agent@a", *to, *more],
                              capture_output=True, text=True, env=environment)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout

    def test_plain(self):
        with Receiver() as server:
            subprocess.run([EXAMPLES / "plain", "127.0.0.1", "agent@a", "ops@b", str(server.port)],
                           check=True, capture_output=True)
        mail = parse(server.mails[0])
        self.assertEqual((mail["From"], mail["To"], mail["Subject"]),
                         ("agent@a", "ops@b", "Disk full"))
        self.assertIn("The disk of host alpha is full.", mail.get_content())

    def test_japanese(self):
        with Receiver() as server:
            self.run_example("japanese", server)
        mail = parse(server.mails[0])
        # The encoded word stands beside ASCII text without a blank, as it is known to.
        self.assertEqual(re.sub(r"\s", "", mail["Subject"]), "ディスク容量の警告(alpha)")
        self.assertIn("ディスク使用率が 95% を超えました。", mail.get_content())

    def test_attachments(self):
        first, last = os.urandom(5000), b""
        kept, temporary = self.file("first.bin", first), self.file("last.bin", last)
        with Receiver() as server:
            self.run_example("attachments", server, kept, temporary)
            self.assertEqual([p.get_content() for p in parse(server.mails[0]).iter_attachments()],
                             [first, last])
            self.assertEqual([p.name for p in self.dir.iterdir()], ["first.bin"])
            self.assertIn("a file is missing", subprocess.run(
                [EXAMPLES / "attachments", "127.0.0.1", str(server.port), "a@a", "b@b", temporary],
                capture_output=True, text=True).stderr)

    def test_split(self):
        data = os.urandom(50000)
        with Receiver() as server:
            self.run_example("split", server, self.file("log", data))
        pieces = [parse(raw) for raw in server.mails]
        self.assertGreater(len(pieces), 3)
        self.assertEqual(server.commands.count("RSET"), len(pieces))
        self.assertEqual([p.get_param("number") for p in pieces],
                         [str(n + 1) for n in range(len(pieces))])
        whole = parse(b"".join(raw.split(b"\r\n\r\n", 1)[1][:-2] for raw in server.mails))
        self.assertEqual([p.get_content() for p in whole.iter_attachments()], [data])

    def test_auth(self):
        cases = [  # password, mechanisms, rules, exit status, words
            ("secret", "4", {}, 0, "sent\n"),
            ("secret", "2", {}, 0, "sent\n"),
            ("secret", "1", {}, 0, "sent\n"),
            ("wrong", "7", {}, 0, "without authentication"),
            ("wrong", "7", {"MAIL": "530 insist"}, 1, "wrong user or password: 530 insist"),
            ("secret", "4", {"EHLO": "250 x", "MAIL": "530 insist"}, 1, "no mechanism"),
            ("secret", "4", {"RCPT": "451 later"}, 75, "refused: 451"),
            ("secret", "4", {"RCPT": "550 never"}, 1, "refused: 550"),
        ]
        for password, mechanisms, rules, status, words in cases:
            with self.subTest(password=password, mechanisms=mechanisms, rules=rules):
                with Receiver(rules=rules, account=("user", "secret")) as server:
                    said = self.run_example("auth", server, "user", mechanisms, status=status,
                                            password=password)
                self.assertIn(words, said)

    def test_pop_first(self):
        with Receiver() as server, Receiver(protocol="pop3") as pop:
            self.run_example("pop_first", server, "user", str(pop.port), password="secret")
            self.assertEqual(pop.commands, ["USER user", "PASS secret", "STAT", "QUIT"])
            self.assertEqual(len(server.mails), 1)
        with Receiver() as server, Receiver(protocol="pop3", rules={"PASS": "-ERR no"}) as pop:
            said = self.run_example("pop_first", server, "user", str(pop.port), password="x",
                                    status=1)
            self.assertIn("result -15 -ERR no", said)
            self.assertEqual(server.commands, [])

    def test_prepared(self):
        content = b"MIME-Version: 1.0\r\nContent-Type: text/plain\r\n\r\nsigned\r\n.\r\n.end\r\n"
        with Receiver() as server:
            self.run_example("prepared", server, self.file("in", content), str(self.dir / "out"))
        head, _, rest = server.mails[0].partition(b"MIME-Version")
        self.assertEqual(b"MIME-Version" + rest, content + b"\r\n")
        self.assertEqual(parse(head)["Subject"], "Signed")

    def test_collect_replies(self):
        with Receiver(rules={"RCPT TO:<bad@b>": "550 unknown"}) as server:
            said = self.run_example("collect_replies", server, to=("a@b", "bad@b", "c@b"), status=1)
        rows = [line.split(None, 2) for line in said.splitlines()]
        self.assertEqual(rows, [["a@b", "0"], ["bad@b", "-6", "550 unknown"], ["c@b", "0"]])

    def test_dlopen_send(self):
        with Receiver() as server:
            self.run_example("dlopen_send", server, LIBRARY)
            self.assertEqual(len(server.mails), 1)
            said = self.run_example("dlopen_send", server, "/nowhere.so", status=1)
            self.assertEqual(said, "")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
