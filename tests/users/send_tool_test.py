"""ovrm-send against the receiver: what arrives, what it says, how it ends.

    send_tool_test.py OVRM_SEND
"""
import os
import pathlib
import pty
import re
import resource
import signal
import subprocess
import sys
import time
import unittest

from receiver import Receiver, Scratch, parse

TOOL = sys.argv[1]
ADDRESSES = ["-f", "agent@a", "-t", "ops@b"]
WORK = pathlib.Path("/var/opt/Quorvin/tmp")
CONFIG = pathlib.Path("/etc/opt/Quorvin/trc_conf")
ACCOUNT = ["-u", "user", "--password-env=PW"]


def command(server, *arguments):
    where = ["-S", "127.0.0.1", "-p", str(server.port)] if server else []
    return [TOOL, *where, *arguments]


def tool(*arguments, server=None, password="wrong", **options):
    if "input" not in options:
        options.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.run(command(server, *arguments), capture_output=True, text=True,
                          env=dict(os.environ, PW=password), **options)


HAS_GMIME = "not in this build" not in tool("--help").stdout


def timeless(wire):
    """A message without what differs between two compositions of it."""
    text = re.sub(r"(?m)^(Date|Message-Id): .*\r\n", "", wire.decode("latin-1"))
    return re.sub(r"OvWexl\d+|wexlb[^\"]*|=-[\w+/]+", "X", text)


class Sending(Scratch):
    def setUp(self):
        super().setUp()
        self.temporary = self.dir / "tmp"
        self.temporary.mkdir()
        os.environ["TMPDIR"] = str(self.temporary)

    def tearDown(self):
        self.assertEqual([*WORK.iterdir(), *self.temporary.iterdir()], [])

    def test_whole_mail(self):
        data, gone = os.urandom(3000), self.file("gone", "x")
        with Receiver({"END": "250 queued as 4X\x1b]0;"}) as server:
            said = tool("-f", '"A, B" <agent@a>', "-t", "ops@b, Ann <night@c>", "-s", "試験 ～", "-a",
                        self.file("x.bin", data), "--attach-temp", gone, "-v", server=server,
                        input="一行目\r\n.二\r行目\n")
        self.assertEqual(said.returncode, 0, said.stderr)
        self.assertRegex(said.stdout, r"(?s)-: 試験 〜\n.*R: 220 test\n.*S: \n\.\n.*\n\n"
                         rf"ovrm-send: sent: 127.0.0.1:{server.port} has the mail: 250 queued as 4X\?")
        self.assertIn("a CR without LF is sent as a line end", said.stderr)
        self.assertFalse(os.path.exists(gone))
        mail = parse(server.mails[0])
        self.assertEqual((mail["From"], mail["To"]), ("agent@a", "ops@b, night@c"))
        text, attached, _ = mail.iter_parts()
        self.assertEqual(text.get_content().replace("\r", ""), "一行目\n.二\n行目\n\n")
        self.assertEqual(attached.get_content(), data)

    def test_outcomes(self):
        big = ["-a", self.file("big", os.urandom(30000))]
        cases = [  # server rules, options, exit status, words
            ({"RCPT": "550 5.1.1 no\x1b[1m"}, [], 69,
             ["refused ops@b after RCPT TO: 550 5.1.1 no\\x1b[1m [-6]", "check recip", "log/rmsmtp"]),
            ({"RCPT TO:<c": "450 no"}, ["-t", "c@d"], 75, ["refused c@d", "--each sends"]),
            ({"EHLO": "500 x", "HELO": "504 x"}, [], 69, ["after HELO", "a name with a domain"]),
            ({"MAIL": "530 5.7.0 Must issue a STARTTLS command first"}, [], 69,
             ["refused the sender agent@a after MAIL FROM", "ovrmail-relay(7)"]),
            ({"END": "554 x"}, ["-b", "x" * 999], 69, ["warning: line 9: 999 bytes", "break the"]),
            ({"END": "554 x"}, ["-a", self.file('絵";.bin', "x")], 69,
             ["a quote ends the name", 'name at ";"', "8-bit text in a header", "--utf8 encodes"]),
            ({}, ["--auth=any", *ACCOUNT], 76, ["without the SMTP AUTH", "said: 250 taken [2]"]),
            ({}, ["--auth=any", *ACCOUNT, "--auth-optional"], 0, ["without the SMTP AUTH"]),
            ({}, ["--split=10", *big], 0, ["in 5 pieces: 250 taken [0]"]),
            ({"MAIL": "530 x", "EHLO": "250 x"}, ["--auth=any", *ACCOUNT], 77, ["offers none of"]),
            ({}, ["-S", "no-such-host.invalid", "--auth=plain", *ACCOUNT], 68,
             ["PLAIN and LOGIN send the password in the clear", "no-such-host.invalid:", "reached: "]),
            ({}, ["-q"], 0, []),
        ]
        for rules, options, status, words in cases:
            with self.subTest(rules=rules, options=options):
                with Receiver(rules=rules, account=("user", "right")) as server:
                    said = tool(*ADDRESSES, "-s", "x", *options, server=server)
                self.assertEqual(said.returncode, status, said.stderr)
                for word in words:
                    self.assertIn(word, said.stdout + said.stderr)
                self.assertNotIn("may or may not", said.stderr)
                self.assertTrue(words or not said.stdout + said.stderr)

    def test_without_a_mail_log(self):
        CONFIG.write_text("[LOG]\nLOGNUM=0\n")
        self.addCleanup(CONFIG.unlink)
        with Receiver({"RCPT TO:<no": "550 no"}) as server:
            said = [tool("-f", "a@b", "-t", to, "-v", server=server) for to in ("yes@b", "no@b")]
        self.assertRegex(said[0].stdout, r"sent: the server has the mail \[0\]\n.*mail log: none")
        self.assertRegex(said[1].stderr, r"0.1:\d+: not sent: the server refused; it said: 550 no")

    def test_doubt_begins_with_the_end_mark(self):
        maybe, not_sent = "may or may not have the mail", "not sent"
        cases = [("RCPT", signal.SIGTERM, 143, not_sent), ("END", signal.SIGINT, 130, maybe),
                 ("RCPT", None, 71, not_sent), ("END", None, 71, maybe)]
        for step, number, status, words in cases:
            with self.subTest(step=step, signal=number), Receiver(rules={step: "stall"}) as server:
                child = subprocess.Popen(command(server, *ADDRESSES, "-v", "-b", "x"), text=True,
                                         stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                for line in child.stdout:  # the dialogue comes while the server is silent
                    if {"RCPT": "S: RCPT TO:<ops@b>", "END": "S: \n"}[step] in line:
                        break
                self.assertTrue(server.stalled.wait(20))
                self.assertEqual(len(list(WORK.iterdir())), 1)
                child.send_signal(number) if number else server.release.set()
                said = child.communicate(timeout=20)[1]
                self.assertEqual(child.returncode, status)
                self.assertIn(words, said)
                self.assertEqual("broke after" in said, number is None)

    def test_each(self):
        many = [option for n in range(6) for option in ("-t", f"{'x' * 40}{n}@b")]
        with Receiver({"RCPT TO:<" + "x" * 40 + "3": "450 no"}) as server:
            self.assertEqual(tool(*ADDRESSES, *many, server=server).returncode, 64)
            said = tool(*ADDRESSES, *many, "--each", "-a", self.file("f", "x"), server=server)
        self.assertEqual((said.returncode, len(server.mails)), (75, 6))
        self.assertEqual(parse(server.mails[-1])["To"], "x" * 40 + "5@b")
        self.assertEqual(len(re.findall(r"@b: sent: ", said.stdout)), 6)
        self.assertRegex(said.stderr, "x3@b: not sent: .* 450 no")

    def test_accounts(self):
        for mechanism in ("cram-md5", "plain", "login"):
            with Receiver(account=("user", "p w")) as server:
                said = tool(*ADDRESSES, "--auth", mechanism, "-u", "user", "--password-file",
                            self.file("pw", "p w\nrest", 0o644), server=server)
            self.assertIn("[0]", said.stdout)
            self.assertIn("can be read by others", said.stderr)
            self.assertEqual(server.commands[1].split()[:2], ["AUTH", mechanism.upper()])
        with Receiver({"PASS": "-ERR no"}, protocol="pop3") as pop:
            said = tool("-S", "x", *ADDRESSES, f"--pop-before=127.0.0.1:{pop.port}", *ACCOUNT)
        self.assertIn(f"POP3 server 127.0.0.1:{pop.port} refused the account after PASS: -ERR no",
                      said.stderr)
        self.assertEqual((said.returncode, pop.commands), (77, ["USER user", "PASS wrong"]))

    @unittest.skipIf("OVRMAIL_VALGRIND" in os.environ, "the process would be valgrind")
    def test_no_core_while_it_holds_a_password(self):
        dumped = []
        for options in ([], ["--auth=any", *ACCOUNT]):
            with Receiver({"RCPT": "stall"}) as server:
                child = subprocess.Popen(
                    command(server, *ADDRESSES, "-b", "", *options), cwd=self.dir,
                    env=dict(os.environ, PW="secret"), preexec_fn=lambda: resource.setrlimit(
                        resource.RLIMIT_CORE, (resource.RLIM_INFINITY,) * 2))
                self.assertTrue(server.stalled.wait(20))
                environment = pathlib.Path(f"/proc/{child.pid}/environ").read_bytes()
                self.assertEqual(b"secret" in environment, not options)
                child.send_signal(signal.SIGQUIT)
                dumped.append(os.WCOREDUMP(os.waitpid(child.pid, 0)[1]))
                child.returncode = 0
            for left in (*WORK.iterdir(), *self.temporary.glob("*/*"), *self.temporary.iterdir()):
                left.rmdir() if left.is_dir() else left.unlink()
        self.assertFalse(dumped[1])
        if not dumped[0]:
            self.skipTest("this machine dumps no core; only the environment was judged")

    @unittest.skipUnless(HAS_GMIME, "built without GMime")
    def test_utf8_and_html(self):
        html, name = self.file("page.html", "<b>🙂</b>\r\n" + "é" * 999), '絵 "1";x:y.bin'
        data = os.urandom(3000)
        with Receiver({"END": "250 ok"}) as server:
            said = tool("-f", '"Ä, B" <agent@a>', "-t", "山 <ops@b>,c@d", "-s",
                        "🙂 café " * 20, "-b", ".\nﾊﾝｶｸ\n" * 3000, "--html", html, "-a",
                        self.file(name, data), server=server)
            self.assertEqual((said.returncode, said.stderr), (0, ""))
            self.assertEqual(tool(*ADDRESSES, "--utf8", input="é", server=server).returncode, 0)
            raw = tool(*ADDRESSES, "--utf8", "-F", self.file("latin1", b"a\xe9b"), server=server)
            self.assertIn("body, line 1, character 2: cannot be sent: E9 (not UTF-8)", raw.stderr)
        self.assertEqual(server.commands[1:4],
                         ["MAIL FROM:<agent@a>", "RCPT TO:<ops@b>", "RCPT TO:<c@d>"])
        self.assertTrue(server.mails[0].isascii())
        mail = parse(server.mails[0])
        self.assertEqual([mail[f] for f in ("From", "To", "Subject")],
                         ['"Ä, B" <agent@a>', "山 <ops@b>, c@d", ("🙂 café " * 20).strip()])
        (text, page), attached = mail.get_payload()[0].iter_parts(), mail.get_payload()[1]
        self.assertEqual(text.get_content().replace("\r", ""), ".\nﾊﾝｶｸ\n" * 3000)
        self.assertEqual(page.get_content().replace("\r", ""), "<b>🙂</b>\n" + "é" * 999)
        self.assertEqual((attached.get_filename(), attached.get_content()), (name, data))
        self.assertEqual(parse(server.mails[1]).get_content().strip(), "é")

    def test_prepared(self):
        prepared = self.file("prepared", "MIME-Version: 1.0\r\n\r\na\r.\n..b\n")
        with Receiver() as server:
            self.assertEqual(tool(*ADDRESSES, "--prepared", prepared, server=server).returncode, 0)
            raw = tool(*ADDRESSES, "--prepared", self.file("raw", "A: b\n\n..\r\n"),
                       "--prepared-raw", server=server)
        self.assertRegex(raw.stderr, "CR before the line end")
        self.assertEqual([mail.partition(b"\r\n\r\n")[2] for mail in server.mails],
                         [b"a\r\n.\r\n..b\r\n\r\n", b".\r\r\n\r\n"])

    def test_mistakes(self):
        cases = [  # options, exit status, words
            (["-b", "é\nﾊ🙂\x1b"], 65, "line 2, character 3: cannot be sent: 1B\n.*--utf8"),
            (["-s", "あ" * 33], 65, "subject: 66 bytes once converted, the limit is 64"),
            (["-a", "/no/such\x1b"], 66, r"/no/such\?: No such file"),
            (["-f", ""], 64, "--from.*1 to 256"), (["-t", "a\nb@c"], 64, "control character"),
            (["-t", "a@b,,c@d"], 64, '"": is empty'), (["-t", "Ann <a@b"], 64, 'end with the ">"'),
            (["-t", "a b@c"], 64, "blank outside"), (["-t", "A (x) <a@b>"], 64, "stand in quotes"),
            (["-t", '"a@c'], 64, "quote is not closed"), (["-t", "é@c"], 64, "SMTPUTF8"),
            (["-S", "mail.a:25"], 64, "holds a port"), (["-S", "[::1]:25"], 64, "IPv6"),
            (["--timeout-mail=59"], 64, "--timeout-mail: needs a number from 60 to 3600"),
            (["--prepared", self.file("long", "a" * 999)], 65, "line 1: 999 bytes"),
            (["--password\x1b=x"], 64, r'"--password\\x1b=x": unknown or ambiguous'),
        ]
        for options, status, words in cases:
            with self.subTest(options=options):
                said = tool("-S", "127.0.0.1", "-p", "1", *ADDRESSES, *options)
                self.assertEqual(said.returncode, status, said.stderr)
                self.assertRegex(said.stderr, "(?s)" + words)
                self.assertNotRegex(said.stderr, "[\x00-\x09\x0b-\x1f]")
        terminal, inner = pty.openpty()
        said = tool("-S", "127.0.0.1", "-p", "1", *ADDRESSES, stdin=inner)
        self.assertRegex(said.stderr, "the text is missing")
        os.close(inner), os.close(terminal)

    def test_progress_on_a_terminal(self):
        big = self.file("big", os.urandom(3 * 1024 * 1024))
        terminal, inner = pty.openpty()
        with Receiver(rules={"QUIT": "stall"}) as server:
            child = subprocess.Popen(command(server, *ADDRESSES, "-b", "", "-a", big), stderr=inner,
                                     stdout=subprocess.DEVNULL)
            self.assertTrue(server.stalled.wait(60))
            time.sleep(0.4)
        self.assertEqual(child.wait(20), 0)
        self.assertRegex(os.read(terminal, 65536).decode(), r"sending: (\d\.\d) of \1 MiB")
        os.close(inner), os.close(terminal)

    def test_dry_run_prints_what_would_be_sent(self):
        picture = self.file("p.bin", os.urandom(60000))
        prepared = self.file("prepared", "MIME-Version: 1.0\n\ntext\n.\n")
        cases = {
            "text": ["-s", "試験", "-b", "a\r\n.b\nあ"],
            "pieces": ["-s", "切", "-b", "x", "-a", picture, "--split=20"],
            "fits in one": ["-b", "é①ﾊ", "--split=20", "--replace"],
            "prepared": ["--prepared", prepared, "-s", "x"],
            "utf8": ["--utf8", "-b", ".\n🙂 日本\n.", "-a", picture],
        }
        for name, options in cases.items():
            with self.subTest(name):
                if name == "utf8" and not HAS_GMIME:
                    continue
                with Receiver() as server:
                    self.assertEqual(tool(*ADDRESSES, *options, server=server).returncode, 0)
                shown = subprocess.run([TOOL, "-n", *ADDRESSES, *options], capture_output=True)
                self.assertEqual(shown.returncode, 0, shown.stderr)
                pieces = re.split(rb"--- piece \d+ of \d+ ---\r\n", shown.stdout)
                messages = [re.sub(rb"(?m)^\.", b"", p) for p in pieces if p]
                # On the wire the end mark brings one line end more.
                self.assertEqual([timeless(m) + "\r\n" for m in messages],
                                 [timeless(m) for m in server.mails])

    def test_warnings(self):
        cases = [  # options, words, whether they are said
            (["-s", "a試験"], "beside other text without a blank", True),
            (["-a", self.file("a:b", b"x")], 'what stands before ":" is cut off', True),
            (["--prepared-raw", "--prepared", self.file("dot", "A: b\n\n.\n")], "a lone", True),
            (["--prepared", self.file("dots", "A: b\r\n\r\n.\n")], 'warning: line', False),
        ]
        for options, words, wanted in cases:
            with self.subTest(options=options):
                said = tool("-n", *ADDRESSES, *options)
                self.assertEqual(words in said.stderr, wanted, said.stderr)
        for zone, wanted in (("JST-9", False), ("JST-9:30", True), ("CET-1CEST,0/0,J365/25", True)):
            said = subprocess.run([TOOL, "-n", *ADDRESSES, "-b", ""], capture_output=True, text=True,
                                  env=dict(os.environ, TZ=zone))
            self.assertEqual("the Date field says" in said.stderr, wanted, zone)


class CheckConfig(Scratch):
    def check(self, words, clean, *options):
        said = tool("--check-config", *options)
        self.assertIn(words, said.stdout)
        self.assertEqual(said.returncode, 0 if clean else 78, said.stdout)

    def test_settings(self):
        cases = [  # contents, words, clean
            ("[LOG]\nLOGSIZE=50\n; note\n[ACERT]\nTRACELEVEL=2\n", "[ACERT] size 5 KiB, level 2", True),
            ("[LOG]\nLOGSIZE=101\n", ":2: LOGSIZE=101: not from 10 to 100; 20 is used", False),
            ("[LOG]\nLOGSIZ\x1b=50\n", ":2: no such key", False),
            ("[AGETS]\nTRACESIZE=100k\n", "TRACESIZE=100k: no plain number; 100 is used", False),
            ("[ACERT]\nTRACESIZE=0\nTRACELEVEL=2\n", "level 1, 5 files", False),
        ]
        self.addCleanup(CONFIG.unlink, missing_ok=True)
        for contents, words, clean in cases:
            with self.subTest(contents=contents):
                CONFIG.write_text(contents)
                self.check(words, clean)

    def test_places(self):
        self.check("ok", True)
        for mode, words, clean in ((0o700, "ok       /var/opt/Quorvin/tmp ", True),
                                   (0o3770, "ok       /var/opt/Quorvin/tmp ", True),
                                   (0o777, "every account can write", False),
                                   (0o770, "its group can delete", False),
                                   (0o755, "every account can read", True)):
            WORK.chmod(mode)
            self.check(words, clean)
        if "." not in os.uname().nodename:
            self.check("without a domain", True)
        ended = subprocess.Popen(["true"])
        ended.wait()
        left = WORK / f"EST{ended.pid}-1"
        left.touch()
        self.addCleanup(left.unlink)
        self.check("left over by a process", False)

    def test_server(self):
        rules = {"EHLO": "250-hi\r\n250-STARTTLS\r\n250 AUTH PLAIN X"}
        with Receiver(rules) as server:
            where = ["-S", "127.0.0.1", "-p", str(server.port)]
            self.check("SMTP AUTH: PLAIN X", True, *where)
            self.check("STARTTLS is offered", True, *where)
            self.check("none of the mechanisms", False, *where, "--auth=cram-md5", "-u", "x")
        self.assertEqual([c.split()[0] for c in server.commands], ["EHLO", "QUIT"] * 3)
        with Receiver({"GREETING": "554 no"}) as server:
            self.check("refuses the connection: 554 no", False, "-S", "127.0.0.1", "-p",
                       str(server.port))
        self.check("x.invalid:9 cannot be reached: ", False, "-S", "x.invalid", "-p", "9")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
