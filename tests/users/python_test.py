"""The Python module against the receiver: what arrives, and how each failure is told.

    python_test.py SOURCE_DIRECTORY OVRM_SEND     (the library is found through LD_LIBRARY_PATH)
"""
import contextlib
import ctypes
import email.message
import locale
import os
import pathlib
import pickle
import re
import signal
import subprocess
import sys
import threading
import unittest
import warnings
from unittest import mock

from receiver import Receiver, Scratch, parse

SOURCE, TOOL = pathlib.Path(sys.argv[1]), sys.argv[2]
sys.path.insert(0, str(SOURCE / "python"))
import ovrmail
from ovrmail import _errors, _library, _server, _text


def send(receiver, attachments=(), **changes):
    usual = {"sender": "agent@a", "recipients": "ops@b", "subject": "s", "text": "t",
             "server": "127.0.0.1", "port": receiver.port}
    return ovrmail.send(attachments=attachments, **{**usual, **changes})


def hasty():
    """A rule of a receiver: from the next command on the library waits one second."""
    _library.MailTimeout.in_dll(_library._lib, "g_stMailTimeout").ulMailFromTimeOut = 1
    ctypes.c_uint32.in_dll(_library._lib, "g_ulPopTimeOut").value = 1


class Sending(Scratch):
    def test_text_and_files(self):
        data = os.urandom(3000)
        files = [pathlib.Path(self.file("x.bin", data)), ("empty.txt", b"")]
        with Receiver() as server, mock.patch("tempfile.tempdir", self.dir):
            done = send(server, files, recipients=["ops@b", "night@c, c@d"], subject="試験 ～",
                        text="一行目\r\n.二\rﾊﾝ\n", replace="～")
        self.assertEqual((done, [p.name for p in self.dir.iterdir()]), (ovrmail.Sent(0), ["x.bin"]))
        mail = parse(server.mails[0])
        self.assertEqual((mail["To"], mail["Subject"].replace(" ", "")),
                         ("ops@b, night@c, c@d", "試験〜"))
        text, *attached = mail.iter_parts()
        self.assertEqual(text.get_content().replace("\r", ""), "一行目\n.二\n〜〜\n\n")
        self.assertEqual([(p.get_filename(), p.get_content()) for p in attached],
                         [("x.bin", data), ("empty.txt", b"")])

    def test_characters_are_those_of_ovrm_send(self):
        plane = re.sub("[\r\n\ud800-\udfff]", "", "".join(map(chr, range(0x10000))))
        tool = [TOOL, "-n", "-f", "a@a", "-t", "b@b"]
        said = subprocess.run([*tool, "-F", "-"], input=plane.encode(), capture_output=True)
        places = re.findall(r"line 1, character (\d+)", said.stderr.decode(errors="replace"))
        refused = {plane[int(place) - 1] for place in places}
        self.assertEqual({c for c in plane if not _text.sendable("text", c, 2, "")}, refused)
        sendable = [c for c in plane if c not in refused]
        lines = ["".join(sendable[at:at + 80]) for at in range(0, len(sendable), 80)]

        subprocess.run(["localedef", "-c", "-i", "ja_JP", "-f", "EUC-JP", self.dir / "ja_JP.eucJP"],
                       capture_output=True)
        os.environ["LOCPATH"] = str(self.dir)
        self.addCleanup(locale.setlocale, locale.LC_ALL, locale.setlocale(locale.LC_ALL))
        for name, codec in (("C.UTF-8", "shift_jis"), ("ja_JP.eucJP", "euc_jp")):
            locale.setlocale(locale.LC_ALL, name)
            self.assertEqual(_library.expected_codec(), codec)
            for text in ("\n".join(lines[:50]), "\n".join(lines[50:])):
                with self.subTest(name), Receiver() as server:
                    self.assertEqual(send(server, subject="試験", text=text), ovrmail.Sent(0))
                    shown = subprocess.run([*tool, "-b", text], capture_output=True).stdout
                    body = re.sub(rb"(?m)^\.", b"", shown.partition(b"\r\n\r\n")[2])
                    self.assertEqual(server.mails[0].partition(b"\r\n\r\n")[2], body + b"\r\n")

    def test_accounts_and_pieces(self):
        for mechanism in ovrmail.MECHANISMS:
            with Receiver(account=("user", "p ä")) as server:
                account = {"user": "user", "mechanisms": mechanism}
                self.assertEqual(send(server, password="p ä", **account), ovrmail.Sent(0))
                self.assertTrue(server.commands[1].startswith("AUTH " + mechanism.upper()))
                done = send(server, password="wrong", **account)
            self.assertTrue(done.unauthenticated and "without the SMTP AUTH" in done.sentence)
        data = os.urandom(40000)
        with Receiver() as server, Receiver(protocol="pop3") as pop:
            send(server, [("log", data)], user="user", password="pw", split=20,
                 pop_first=ovrmail.PopFirst("localhost", pop.port, wait=0.001))
        self.assertEqual(pop.commands[:2], ["USER user", "PASS pw"])
        self.assertGreater(len(server.mails), 2)
        whole = parse(b"".join(raw.split(b"\r\n\r\n", 1)[1][:-2] for raw in server.mails))
        self.assertEqual([p.get_content() for p in whole.iter_attachments()], [data])

    def test_threads_and_forks(self):
        with Receiver() as server:
            threads = [threading.Thread(target=send, args=(server,)) for _ in range(4)]
            for step in (threading.Thread.start, threading.Thread.join):
                for thread in threads:
                    step(thread)
            self.assertEqual(len(server.mails), 4)
        with Receiver({"MAIL": "stall"}) as server:
            thread = threading.Thread(target=self.assertRaises,
                                      args=(ovrmail.SendError, send, server))
            thread.start()
            server.stalled.wait()
            with mock.patch.object(_library, "_lock", threading.Lock()):
                with self.assertRaisesRegex(ovrmail.Busy, "another send is running"):
                    send(server)
            warnings.simplefilter("ignore")  # newer interpreters warn of a fork beside threads
            child = os.fork()
            if child == 0:
                signal.alarm(20)  # ends the wait for a lock that nobody releases
                with contextlib.suppress(ovrmail.Busy):
                    os._exit(bool(send(server)))
                os._exit(0)
            self.assertEqual(os.waitpid(child, 0)[1], 0)
        thread.join()


class Messages(Scratch):
    def test_arrives_as_composed(self):
        mail = email.message.EmailMessage()
        mail["From"], mail["Subject"] = "Ä. Gent <agent@a>", "🙂 " * 40
        mail["To"], mail["Bcc"] = '"O, Ps" <ops@b>, ops@b', "night@c"
        mail.set_content("." * 500 + "\n.\n🙂 日本\nFrom x\n")
        mail.add_alternative("<b>é</b>\n", subtype="html")
        mail.add_attachment(bytes(range(256)), "application", "x", filename="表 1.bin")
        with Receiver() as server:
            ovrmail.send_message(mail, server="127.0.0.1", port=server.port)
        self.assertEqual([c for c in server.commands if ":" in c],
                         ["MAIL FROM:<agent@a>", "RCPT TO:<ops@b>", "RCPT TO:<night@c>"])
        self.assertTrue(server.mails[0].isascii())
        got = parse(server.mails[0].replace(b"\r\n", b"\n"))
        self.assertTrue(got["Date"] and got["Message-ID"])
        self.assertEqual((mail["Bcc"], mail["Date"]), ("night@c", None))
        self.assertEqual([got[field] for field in ("From", "To", "Subject", "Bcc")],
                         [mail["From"], mail["To"], mail["Subject"], None])
        for sent, arrived in zip(mail.walk(), got.walk()):
            self.assertEqual(arrived.get_content_type(), sent.get_content_type())
            self.assertEqual(arrived.get_filename(), sent.get_filename())
            if not sent.is_multipart():
                self.assertEqual(arrived.get_content(), sent.get_content())

    def test_bytes_that_were_signed(self):
        head = (b"From: a@b\nTo: c@d\nDate: x\nMessage-ID: <x>\nMIME-Version: 1.0\n"
                b"Content-Type: multipart/signed; boundary=x; protocol=y/z\n\n")
        signed = (b"--x\nContent-Type: text/plain;\n  charset=utf-8\nX-Long: " + b"ab " * 60 +
                  b"\n\n.%b\nFrom here\n--x\nContent-Type: y/z\n\nq\n--x--\n")
        good, wrong = head + signed % (b"a" * 997), {
            head + signed % b"\xc3\xa9": "line 13: 8-bit or NUL",
            head + signed % b"\0": "line 13: 8-bit or NUL",
            head + signed % (b"a" * 998): "line 13: 999 bytes, the limit is 998",
            b"From: a@b\nTo: c@d\n\n\xff\n": "8-bit bytes without a usable charset"}
        with Receiver() as server:
            where = {"server": "127.0.0.1", "port": server.port}
            ovrmail.send_message(parse(good), **where)
            for raw, words in wrong.items():
                with self.assertRaisesRegex(ovrmail.BadArgument, words):
                    ovrmail.send_message(parse(raw), **where)
        self.assertEqual(server.mails, [(good + b"\n").replace(b"\n", b"\r\n")])


class Failures(Scratch):
    def test_classes(self):
        account, pop = {"user": "user", "password": "wrong"}, {"user": "user", "password": "x"}
        nowhere, hello = "no-such-host.invalid", {"GREETING": "+OK"}
        # Class, result, temporary, may have been sent, words, server, POP3 server, changes.
        cases = [
            (ovrmail.Refused, -6, 0, 0, "refused; it said: 550 no", {"RCPT": "550 no"}, None, {}),
            (ovrmail.Refused, -6, 1, 0, "said: 450 later", {"END": "450 later"}, None, {}),
            (ovrmail.Refused, -26, 1, 0, "none of the .*: 430 x",
             {"EHLO": "250 x", "MAIL": "430 x"}, None, account),
            (ovrmail.Refused, -15, 0, 0, "POP3 login .* -ERR", {}, {**hello, "USER": "-ERR"}, pop),
            (ovrmail.TimedOut, -4, 1, 1, "may or may not", {"EHLO": hasty, "MAIL": "stall"},
             None, {}),
            (ovrmail.TimedOut, -17, 1, 0, "POP3 .* in time", {},
             {"GREETING": lambda: hasty() or "+OK", "USER": "stall"}, pop),
            (ovrmail.SendError, -7, 0, 1, "failed during", {"MAIL": "close"}, None, {}),
            (ovrmail.SendError, -16, 0, 0, "to the POP3", {}, {**hello, "USER": "close"}, pop),
            (ovrmail.Unreachable, -10, 1, 0, r"Unknown|failure \(", {}, None, {"server": nowhere}),
            (ovrmail.Unreachable, -18, 1, 0, r"Unknown|failure \(", {}, None,
             {**pop, "pop_first": ovrmail.PopFirst(nowhere)}),
            (ovrmail.SendError, -3, 0, 0, r"directory \(2\)", {}, None,
             {"attachments": [("x", b"")]}),
        ]
        for kind, result, temporary, doubtful, words, rules, pop_rules, changes in cases:
            with self.subTest(words), Receiver(rules, ("user", "right")) as server, \
                    Receiver(pop_rules) as pop_server, mock.patch("tempfile.tempdir", "/no/such"):
                if pop_rules:
                    changes = {**changes, "pop_first": ovrmail.PopFirst(port=pop_server.port)}
                with self.assertRaisesRegex(ovrmail.SendError, words) as caught:
                    send(server, **changes)
                error = pickle.loads(pickle.dumps(caught.exception))
                self.assertEqual((type(error), error.result, error.temporary,
                                  error.may_have_been_sent, bool(error.reply), error.sentence),
                                 (kind, result, temporary, doubtful, kind is ovrmail.Refused,
                                  str(caught.exception)))
        self.assertTrue(_errors.failure(-3, "28").temporary)

    def test_arguments(self):
        many = [f"{n:050}@b" for n in range(5)]
        cases = [  # changes, result, argument, words
            ({"text": "a\r\n\rcaf\u00e9 🙂"}, -1, "text", "line 3, character 4: .*: é .U.00E9"),
            ({"text": "\ud800"}, -1, "text", "character 1: cannot be sent: .U.D800"),
            ({"subject": "あ" * 33}, -1, "subject", "66 bytes once converted, the limit is 64"),
            ({"recipients": many}, -5, "recipients", "264 bytes .* is 256: use send_each"),
            ({"sender": "Ops <a@b>"}, -1, "sender", "character 5 cannot stand in it: <"),
            ({"timeouts": ovrmail.Timeouts(end=59)}, -1, "timeouts.end", "from 60 to 3600"),
            ({"attachments": ["/no/such"]}, -8, "attachments", "/no/such.: No such file"),
            ({"attachments": [("../x", b"")]}, -1, "attachments", "a name"),
        ]
        with Receiver() as server:
            for changes, result, argument, words in cases:
                with self.subTest(words), self.assertRaisesRegex(ValueError, words) as caught:
                    send(server, **changes)
                self.assertEqual((caught.exception.result, caught.exception.argument),
                                 (result, argument))
            self.assertEqual(server.commands, [])
            outcomes = ovrmail.send_each("a@b", [*many, "é@b"], "s", "t", server="127.0.0.1",
                                         port=server.port)
        self.assertEqual([type(outcome) for _, outcome in outcomes],
                         [ovrmail.Sent] * 5 + [ovrmail.BadArgument])


class Contract(Scratch):
    def test_records_and_password(self):
        told = (SOURCE / "docs/abi.md").read_text()
        for record in ("MailEntry", "MailSplitOption", "MailTimeout", "MailPopAccount",
                       "MailAuthAccount", "MailLangInfo"):
            fields, size = re.search(rf"\| `{record}` \| (.*) \| (\d+)", told).groups()
            mine = getattr(_library, record)
            self.assertEqual({name: getattr(mine, name).offset for name, _ in mine._fields_},
                             {name: int(at) for name, at in re.findall(r"`(\w+)` (\d+)", fields)})
            self.assertEqual(ctypes.sizeof(mine), int(size))
        server = _server.Server("x", 25, "user", "secret", "plain", None, None)
        with _library._account(server) as option:
            place = ctypes.c_void_p.from_buffer(option, _library.MailEntry.value.offset).value
            self.assertIn(b"secret", ctypes.string_at(place, 136))
        self.assertEqual(ctypes.string_at(place, 136), bytes(136))

    def test_examples(self):
        report = self.file("report.csv", "a,b\n")
        with Receiver({"RCPT TO:<bad": "550 no", "RCPT TO:<late": "451 x"}) as server:
            where = ["127.0.0.1", str(server.port), "agent@a"]
            said = [subprocess.run([sys.executable, SOURCE / "examples" / name, *arguments],
                                   capture_output=True, text=True,
                                   env={**os.environ, "PYTHONPATH": str(SOURCE / "python")})
                    for name, *arguments in (
                        ("plain.py", "127.0.0.1", "agent@a", "ops@b", report, where[1]),
                        ("message.py", *where, "ops@b", report),
                        ("each.py", *where, "bad@b", "late@b", "ok@b"))]
        self.assertEqual([(s.returncode, s.stderr) for s in said], [(0, ""), (0, ""), (1, "")])
        self.assertRegex(said[2].stdout, "bad@b: .*550 no\nlate@b: .* later\nok@b: sent")
        files = [next(parse(mail).iter_attachments()) for mail in server.mails[:2]]
        self.assertEqual([f.get_filename() for f in files], ["report.csv"] * 2)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
