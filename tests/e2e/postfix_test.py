"""Whole mails, pieces and prepared messages through Postfix, read back from its maildirs."""
import email
import os
import re
import subprocess
import unittest

import e2e

USERS = [f"u{number:02}" for number in range(1, 21)]


def setUpModule():
    global sandbox, postfix
    sandbox = e2e.Sandbox()
    unittest.addModuleCleanup(sandbox.cleanup)
    postfix = e2e.Postfix(sandbox, USERS)
    unittest.addModuleCleanup(postfix.stop)


class WholeMail(unittest.TestCase):
    def test_three_attachments_to_twenty_recipients(self):
        locales = sandbox.make("locales")
        subprocess.run(["localedef", "-i", "ja_JP", "-f", "EUC-JP", locales / "ja_JP.eucJP"],
                       check=True, stderr=subprocess.DEVNULL)
        files = [sandbox.random_file(name, size) for name, size in
                 (("empty.dat", 0), ("line.dat", 51), ("large.dat", 300_000))]
        to = ",".join(f"{user}@{e2e.DOMAIN}" for user in USERS)
        for charset, locale in (("shift_jis", "C"), ("euc_jp", "ja_JP.eucJP")):
            with self.subTest(locale=locale):
                mail = e2e.Mail(files, charset)
                result = e2e.send(postfix.port, to, mail.arguments() + ["locale", locale],
                                  {"LOCPATH": str(locales)})
                self.assertEqual(result, (0, ""))
                for user in USERS:
                    mail.check(self, postfix.take(user)[0])

    def test_no_text_starts_another_mail(self):
        """Byte 1,024 of a line is the CR of its CR LF, a lead byte, or in front of both."""
        forged = f"MAIL FROM:<x@{e2e.DOMAIN}>\nRCPT TO:<u03@{e2e.DOMAIN}>\nDATA\nforged\n.\n"
        for start in (b"x" * 1023, b"x" * 1022 + b"\x82", b"x" * 1023 + b"\x82",
                      b"x" * 1021 + b"\x82\xa0"):
            text = start + b"\n.\n" + forged.encode() + b"the end"
            self.assertEqual(e2e.send(postfix.port, f"u02@{e2e.DOMAIN}", ["text", text]), (0, ""))
            [mail] = postfix.take("u02")
            self.assertIn(b"\n.\nMAIL FROM:", mail)
            self.assertIn(b"the end\n", mail)
        self.assertFalse((postfix.boxes / "u03").exists())


class Pieces(unittest.TestCase):
    """A mail cut into message/partial pieces, put together again by another program."""

    def test_reassembled_by_others(self):
        files = [sandbox.random_file(name, size) for name, size in
                 (("first.bin", 150_000), ("small.bin", 51), ("last.bin", 160_000))]
        mail = e2e.Mail(files, text="".join(f"{n:04} 行目、表示のソフト\n" for n in range(350)))
        for kib in (10, 100):
            with self.subTest(kib=kib):
                result = e2e.send(postfix.port, f"u01@{e2e.DOMAIN}",
                                  mail.arguments() + ["split-kib", kib])
                self.assertEqual(result, (0, ""))
                pieces = postfix.take_pieces("u01")
                self.assertGreater(len(pieces), 400_000 // (kib * 1024))
                folder = sandbox.make(f"pieces-{kib}")
                names = [folder / f"piece-{number:03}" for number in range(len(pieces))]
                for name, piece in zip(names, reversed(pieces)):
                    name.write_bytes(piece)
                self.check_munpack(mail, folder, names)

    def check_munpack(self, mail, folder, names):
        # Debian's munpack creates its note of the total exclusively and so trips over the second
        # piece that names one; without the note it takes piece after piece.
        for name in names:
            for note in folder.glob("m-prts-*/*/CT"):
                note.unlink()
            subprocess.run(["munpack", "-q", "-t", "-C", folder, name], check=True,
                           stdout=subprocess.DEVNULL, env={**os.environ, "TMPDIR": str(folder)})
        for path in mail.attachments:
            self.assertTrue((folder / path.name).read_bytes() == path.read_bytes(), path.name)
        text = (folder / "part1").read_bytes().decode("iso2022_jp")
        mail.check_text(self, text, joined=True)


class PreparedMessage(unittest.TestCase):
    def test_signature_holds_after_delivery(self):
        key, certificate = sandbox.path / "key.pem", sandbox.path / "certificate.pem"
        run_openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=agent",
                    "-addext", "extendedKeyUsage=emailProtection",
                    "-keyout", key, "-out", certificate)
        text = sandbox.path / "text"
        text.write_text("Content-Type: text/plain\n\nThe disk is full.\n.a dot first\n\n.\n")
        signed = run_openssl("smime", "-sign", "-in", text, "-signer", certificate, "-inkey", key)
        # The file goes out as it is: the caller prepares LF line ends and doubled dots.
        prepared = sandbox.path / "prepared"
        prepared.write_bytes(re.sub(rb"(?m)^\.", b"..", signed.replace(b"\r\n", b"\n")))
        header = sandbox.path / "header"
        header.write_text("From: other@e.test\nTo: u02@e.test\nSubject: own header\n")
        for name, extra, subject in (("made header", (), "signed"),
                                     ("own header", ("prepared-header", header), "own header")):
            with self.subTest(name):
                result = e2e.send(postfix.port, f"u02@{e2e.DOMAIN}",
                                  ["subject", "signed", "prepared", prepared, *extra])
                self.assertEqual(result, (0, ""))
                delivered = sandbox.path / "delivered"
                delivered.write_bytes(postfix.take("u02")[0])
                self.assertEqual(email.message_from_bytes(delivered.read_bytes())["Subject"],
                                 subject)
                verified = run_openssl("smime", "-verify", "-in", delivered, "-CAfile",
                                       certificate)
                self.assertEqual(verified.replace(b"\r\n", b"\n"), text.read_bytes())


def run_openssl(*arguments):
    return subprocess.run(["openssl", *arguments], check=True, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL).stdout


if __name__ == "__main__":
    e2e.main(root=True, commands=("postfix", "localedef", "munpack", "openssl"))
