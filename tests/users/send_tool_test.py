"""ovrm-send against the receiver: what arrives, what it says, how it ends.

    send_tool_test.py OVRM_SEND
"""
import os
import pathlib
import pty
import re
import signal
import subprocess
import sys
import time
import unittest

from receiver import Receiver, Scratch, parse

TOOL = sys.argv[1]
ADDRESSES = ["-f", "agent@a", "-t", "ops@b"]
WORK = pathlib.Path("/var/opt/Quorvin/tmp")


def command(server, *arguments):
    where = ["-S", "127.0.0.1", "-p", str(server.port)] if server else []
    return [TOOL, *where, *arguments]


def tool(*arguments, server=None, **options):
    return subprocess.run(command(server, *arguments), capture_output=True, text=True, **options)


def timeless(wire):
    """A message without what differs between two compositions of it."""
    text = re.sub(r"(?m)^(Date|Message-Id): .*\r\n", "", wire.decode("latin-1"))
    return re.sub(r"OvWexl\d+|wexlb[^\"]*", "X", text)


class Sending(Scratch):
    def test_whole_mail(self):
        data = os.urandom(3000)
        with Receiver() as server:
            said = tool(*ADDRESSES, "-t", "night@c", "-s", "試験 ～", "-F", "-", "-a",
                        self.file("x.bin", data), "-v", server=server, input="一行目\n.二行目\n")
        self.assertEqual(said.returncode, 0, said.stderr)
        self.assertIn("-: 試験 〜", said.stdout)
        self.assertIn("the server has the mail [0]", said.stdout)
        mail = parse(server.mails[0])
        self.assertEqual(mail["To"], "ops@b, night@c")
        self.assertEqual(mail["Subject"].replace(" ", ""), "試験〜")
        text, attached = mail.iter_parts()
        self.assertEqual(text.get_content().replace("\r", ""), "一行目\n.二行目\n\n")
        self.assertEqual(attached.get_content(), data)

    def test_results(self):
        account = ["-u", "user", "--password-env=PW"]
        cases = [  # server rules, options, exit status, words
            ({"RCPT": "550 unknown"}, [], 69, "the server refused; it said: 550 unknown [-6]"),
            ({"RCPT": "450 busy"}, [], 75, "450 busy"),
            ({"GREETING": "554 go away"}, [], 69, "554 go away"),
            ({}, ["--auth=any", *account], 0, "sent, but without the SMTP AUTH asked for"),
            ({"MAIL": "530 must"}, ["--auth=cram-md5", *account], 77, "SMTP AUTH failed"),
            ({"MAIL": "530 must", "EHLO": "250 x"}, ["--auth=any", *account], 77, "none of the"),
            ({}, ["-p", "1"], 68, "cannot be reached: Connection refused (111) [-10]"),
            ({}, ["-S", "no-such-host.invalid"], 68, "cannot be reached"),
            ({}, ["-q"], 0, ""),
        ]
        for rules, options, status, words in cases:
            with self.subTest(rules=rules, options=options):
                with Receiver(rules=rules, account=("user", "right")) as server:
                    said = tool(*ADDRESSES, "-s", "x", *options, server=server,
                                env=dict(os.environ, PW="wrong"))
                self.assertEqual(said.returncode, status, said.stderr)
                self.assertIn(words, said.stdout + said.stderr)
                self.assertTrue(words or not said.stdout)
                self.assertEqual(list(WORK.iterdir()), [])

    def test_accounts(self):
        for mechanism in ("cram-md5", "plain", "login"):
            with Receiver(account=("user", "p w")) as server:
                said = tool(*ADDRESSES, "--auth", mechanism, "-u", "user", "--password-file",
                            self.file("pw", "p w\nrest", 0o644), "-v", server=server)
            self.assertIn("[0]", said.stdout)
            self.assertIn("can be read by others", said.stderr)
            self.assertIn("S: AUTH " + mechanism.upper(), said.stdout)
        with Receiver() as server, Receiver(protocol="pop3") as pop:
            said = tool(*ADDRESSES, f"--pop-before=127.0.0.1:{pop.port}", "-u", "user",
                        "--password-env=PW", server=server, env=dict(os.environ, PW="secret"))
            self.assertEqual((said.returncode, len(server.mails)), (0, 1))
            self.assertEqual(pop.commands[:2], ["USER user", "PASS secret"])

    def test_characters_that_cannot_be_sent(self):
        text = "caf\u00e9\nﾊﾝｶｸ ① 🙂\x1b"
        with Receiver() as server:
            said = tool(*ADDRESSES, "-b", text, server=server)
            self.assertEqual(said.returncode, 65)
            places = re.findall(r"body, line (\d), character (\d)", said.stderr)
            self.assertEqual(places, [("1", "4")] + [("2", str(n)) for n in (1, 2, 3, 4, 6, 8, 9)])
            self.assertEqual(server.commands, [])
            self.assertEqual(tool(*ADDRESSES, "-b", text, "--replace", server=server).returncode, 0)
            raw = self.file("latin1", b"a\xe9b")
            self.assertIn("E9", tool(*ADDRESSES, "-F", raw, server=server).stderr)
        self.assertIn(b"caf?\r\n???? ? ??\r\n", server.mails[0])

    def test_limits_and_mistakes(self):
        cases = [  # options, exit status, words
            (["-s", "あ" * 33], 65, "subject: 66 bytes"),
            (["-b", "x" * 10239], 65, "body: 10239 bytes"),
            (["-a", "/no/such"], 66, "/no/such: No such file"),
            (["-a", "/"], 66, "not a regular file"),
            (["--timeout-mail=59"], 64, "--timeout-mail: needs a number from 60 to 3600"),
            (["--split=9"], 64, "from 10 to 100"),
            (["--auth=digest"], 64, "knows cram-md5"),
            (["--auth=plain"], 64, "need --user"),
            (["--auth=plain", "-u", "x"], 64, "--password-file or --password-env"),
            (["-t", "a\nb@c"], 64, "line break"),
            (["-t", "x" * 252], 64, "1 to 256"),
            (["--prepared=x", "-b", "x"], 64, "neither a body"),
            (["--password=x"], 64, "ambiguous"),
            (["extra"], 64, "unexpected argument"),
        ]
        for options, status, words in cases:
            with self.subTest(options=options):
                said = tool("-S", "127.0.0.1", "-p", "1", *ADDRESSES, *options)
                self.assertEqual(said.returncode, status)
                self.assertIn(words, said.stderr)

    def test_a_signal_removes_the_working_files(self):
        with Receiver(rules={"MAIL": "stall"}) as server:
            child = subprocess.Popen(command(server, *ADDRESSES), stderr=subprocess.PIPE, text=True)
            self.assertTrue(server.stalled.wait(20))
            self.assertEqual(len(list(WORK.iterdir())), 1)
            child.send_signal(signal.SIGTERM)
            self.assertIn("ended by signal 15", child.communicate(timeout=20)[1])
        self.assertEqual(child.returncode, 143)
        self.assertEqual(list(WORK.iterdir()), [])

    def test_progress_on_a_terminal(self):
        big = self.file("big", os.urandom(3 * 1024 * 1024))
        terminal, inner = pty.openpty()
        with Receiver(rules={"QUIT": "stall"}) as server:
            child = subprocess.Popen(command(server, *ADDRESSES, "-a", big), stderr=inner,
                                     stdout=subprocess.DEVNULL)
            self.assertTrue(server.stalled.wait(60))
            time.sleep(0.6)
        self.assertEqual(child.wait(20), 0)
        self.assertRegex(os.read(terminal, 65536).decode(), r"sending: (\d\.\d) of \1 MiB")
        os.close(inner)
        os.close(terminal)


class DryRun(Scratch):
    def test_prints_what_would_be_sent(self):
        picture = self.file("p.bin", os.urandom(60000))
        prepared = self.file("prepared", "MIME-Version: 1.0\n\ntext\n..\n")
        cases = {
            "text": ["-s", "試験", "-b", "a\r\n.b\nあ"],
            "no text": [],
            "attachments": ["-b", "x", "-a", picture, "-a", self.file("q", b"")],
            "pieces": ["-s", "切", "-b", "x", "-a", picture, "--split=20"],
            "fits in one": ["-b", "x", "--split=20"],
            "prepared": ["--prepared", prepared, "-s", "x"],
            "own header": ["--prepared", prepared, "--prepared-header", self.file("h", "To: x\n")],
        }
        for name, options in cases.items():
            with self.subTest(name):
                with Receiver() as server:
                    self.assertEqual(tool(*ADDRESSES, *options, server=server).returncode, 0)
                shown = subprocess.run([TOOL, "-n", *ADDRESSES, *options], capture_output=True)
                self.assertEqual(shown.returncode, 0, shown.stderr)
                pieces = re.split(rb"--- piece \d+ of \d+ ---\r\n", shown.stdout)
                messages = [re.sub(rb"(?m)^\.", b"", p) for p in pieces if p]
                # On the wire the end mark brings one line end more.
                self.assertEqual([timeless(m) + "\r\n" for m in messages],
                                 [timeless(m) for m in server.mails])
        self.assertEqual(list(WORK.iterdir()), [])

    def test_warnings(self):
        cases = [  # options, words, or words that must not be there
            (["-b", "x" * 999], "line 9: 999 bytes", True),
            (["-b", "x" * 998], "bytes; more than 998", False),
            (["-s", "a試験"], "beside other text without a blank", True),
            (["-s", "試験"], "beside other text", False),
            (["-a", self.file("絵.png", b"x")], "8-bit text in a header field: Content-Type", True),
            (["--prepared", self.file("dot", "A: b\n\n.\n")], 'a lone "." ends the mail', True),
            (["--prepared", self.file("dots", "A: b\n\n..\n")], '"."', False),
            (["--prepared", self.file("crlf", "A: b\r\n\r\n")], "plain LF", True),
        ]
        for options, words, wanted in cases:
            with self.subTest(options=options):
                said = subprocess.run([TOOL, "-n", *ADDRESSES, *options], capture_output=True)
                self.assertEqual(words in said.stderr.decode(), wanted, said.stderr)
        if "." not in os.uname().nodename:
            self.assertIn("without a domain", said.stderr.decode())


class CheckConfig(Scratch):
    CONFIG = pathlib.Path("/etc/opt/Quorvin/trc_conf")

    def test_findings(self):
        cases = [  # contents, words, clean
            ("[LOG]\nLOGSIZE=50\n; note\n[ACERT]\nTRACELEVEL=2\n", "[ACERT] size 5 KiB, level 2", True),
            ("[LOG]\nLOGSIZE=101\n", "LOGSIZE 101: out of range, 20 is used", False),
            ("[LOG]\nLOGNUM=0\n", "switched off", False),
            ("[LOG]\nLOGSIZE =50\n", ":2: blanks around the key", False),
            ("[LOG]\nLOGSIZ=50\n", ":2: no such key", False),
            ("[LOG\n", "\"]\" is missing", False),
            ("[ACERT]\nTRACESIZE=0\nTRACELEVEL=2\n", "level 1, 5 files: the defaults", False),
        ]
        self.addCleanup(self.CONFIG.unlink, missing_ok=True)
        self.assertEqual(tool("--check-config").returncode, 0)
        for contents, words, clean in cases:
            with self.subTest(contents=contents):
                self.CONFIG.write_text(contents)
                said = tool("--check-config")
                self.assertIn(words, said.stdout)
                self.assertEqual(said.returncode, 0 if clean else 78)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
