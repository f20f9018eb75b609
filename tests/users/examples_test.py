"""Runs every example against the receiver and reads what arrived with Python's own mail parser.

    examples_test.py DIRECTORY_OF_THE_EXAMPLES LIBRARY
"""
import email.policy
import os
import pathlib
import re
import subprocess
import sys
import unittest
from email.message import EmailMessage

from receiver import Receiver, Scratch, parse

EXAMPLES, LIBRARY = pathlib.Path(sys.argv[1]), sys.argv[2]


class Examples(Scratch):
    def run_example(self, name, server, *more, to=("ops@b",), status=0, password="secret"):
        done = subprocess.run([EXAMPLES / name, "127.0.0.1", str(server.port), "agent@a", *to, *more],
                              capture_output=True, text=True,
                              env=dict(os.environ, MAIL_PASSWORD=password))
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout + done.stderr

    def test_mails(self):
        with Receiver() as server:
            subprocess.run([EXAMPLES / "plain", "127.0.0.1", "agent@a", "ops@b", str(server.port)],
                           check=True, capture_output=True)
            self.run_example("japanese", server)
            self.run_example("dlopen_send", server, LIBRARY)
            self.run_example("dlopen_send", server, "/nowhere.so", status=1)
        plain, japanese, _ = map(parse, server.mails)
        self.assertEqual((plain["From"], plain["To"], plain["Subject"]),
                         ("agent@a", "ops@b", "Disk full"))
        self.assertIn("The disk of host alpha is full.", plain.get_content())
        # The encoded word stands beside ASCII text without a blank, as it is known to.
        self.assertEqual(re.sub(r"\s", "", japanese["Subject"]), "ディスク容量の警告(alpha)")
        self.assertIn("ディスク使用率が 95% を超えました。", japanese.get_content())

    def test_attachments(self):
        data = os.urandom(5000)
        kept, temporary = self.file("first.bin", data), self.file("last.bin", b"")
        with Receiver() as server:
            self.run_example("attachments", server, kept, temporary)
            self.assertIn("a file is missing",
                          self.run_example("attachments", server, temporary, status=1))
        self.assertEqual([p.get_content() for p in parse(server.mails[0]).iter_attachments()],
                         [data, b""])
        self.assertEqual([p.name for p in self.dir.iterdir()], ["first.bin"])

    def test_split(self):
        data = os.urandom(50000)
        with Receiver() as server:
            self.run_example("split", server, self.file("log", data))
        self.assertEqual([parse(raw).get_param("number") for raw in server.mails],
                         [str(n + 1) for n in range(server.commands.count("RSET"))])
        whole = parse(b"".join(raw.split(b"\r\n\r\n", 1)[1][:-2] for raw in server.mails))
        self.assertEqual([p.get_content() for p in whole.iter_attachments()], [data])

    def test_auth(self):
        cases = [  # password, mechanisms, rules, exit status, words
            ("secret", "4", {}, 0, "sent\n"),
            ("wrong", "7", {}, 0, "without authentication"),
            ("secret", "4", {"EHLO": "250 x", "MAIL": "530 insist"}, 1, "no mechanism"),
            ("secret", "4", {"RCPT": "451 later"}, 75, "refused: 451"),
        ]
        for password, mechanisms, rules, status, words in cases:
            with self.subTest(password=password, mechanisms=mechanisms, rules=rules):
                with Receiver(rules=rules, account=("user", "secret")) as server:
                    said = self.run_example("auth", server, "user", mechanisms, status=status,
                                            password=password)
                self.assertIn(words, said)

    def test_pop_first(self):
        for rules, status, sent in (({}, 0, 1), ({"PASS": "-ERR no"}, 1, 0)):
            with Receiver() as server, Receiver(protocol="pop3", rules=rules) as pop:
                said = self.run_example("pop_first", server, "user", str(pop.port), status=status)
            self.assertEqual(pop.commands[:2], ["USER user", "PASS secret"])
            self.assertEqual(len(server.mails), sent)
        self.assertIn("result -15 -ERR no", said)

    def test_prepared(self):
        content = b"MIME-Version: 1.0\r\nContent-Type: text/plain\r\n\r\nsigned\r\n.\r\n.end\r\n"
        with Receiver() as server:
            self.run_example("prepared", server, self.file("in", content), str(self.dir / "out"))
        head, _, rest = server.mails[0].partition(b"MIME-Version")
        self.assertEqual(b"MIME-Version" + rest, content + b"\r\n")
        self.assertEqual(parse(head)["Subject"], "Signed")

    def test_send(self):
        data = os.urandom(5000)
        with Receiver() as server:
            where = [EXAMPLES / "send", "127.0.0.1", "agent@a", "ops@b", str(server.port)]
            subprocess.run([*where, self.file("report.csv", data)], check=True, capture_output=True)
            said = subprocess.run([*where, "/no/such"], capture_output=True, text=True)
        self.assertEqual((said.returncode, said.stdout),
                         (1, "not sent: /no/such: No such file or directory (2)\n"))
        mail = parse(server.mails[0])
        self.assertEqual(mail["Subject"], "ディスク使用量")
        text, attached = mail.iter_parts()
        self.assertIn("90 % を超えました。", text.get_content())
        self.assertEqual((attached.get_filename(), attached.get_content()), ("report.csv", data))

    def test_send_message(self):
        message = EmailMessage(email.policy.SMTP)
        message["From"], message["To"], message["Subject"] = "a@b", "All: ops@b;", "🙂 é " * 30
        message.set_content("🙂\n.\n..\n")
        message.add_alternative("<p>🙂</p>\n", subtype="html")
        message.add_attachment(os.urandom(5000), maintype="image", subtype="png", filename="é.png")
        with Receiver(rules={"RCPT TO:<bad@b>": "550 unknown"}) as server:
            done = subprocess.run([EXAMPLES / "send_message", "127.0.0.1", str(server.port), "a@b",
                                   "ops@b", "bad@b"], input=bytes(message), capture_output=True)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"bad@b: not sent: the server refused; it said: 550 unknown", done.stdout)
        self.assertEqual([bytes(message) + b"\r\n"], server.mails)

    def test_collect_replies(self):
        with Receiver(rules={"RCPT TO:<bad@b>": "550 unknown"}) as server:
            said = self.run_example("collect_replies", server, to=("a@b", "bad@b", "c@b"), status=1)
        rows = [line.split(None, 2) for line in said.splitlines()]
        self.assertEqual(rows, [["a@b", "0"], ["bad@b", "-6", "550 unknown"], ["c@b", "0"]])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
