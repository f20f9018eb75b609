"""demo.py SENDER - sends one mail with SENDER to a receiver of its own and shows what arrived.

Run by demo.sh inside private directories; where there are none, it removes its log and its trace
ring from the real ones. Exit status 0 only when subject, text and attachment arrived as they were
sent.
"""
import email
import email.policy
import glob
import hashlib
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading

SENDER = "agent@demo.example"
RECIPIENT = "operator@demo.example"
SUBJECT = "【警告】ソフト表示機能の異常"
TEXT = "監視サーバーからのお知らせです。\nディスク使用率が 95% を超えました。\n.先頭が点の行もそのまま届きます。\n"
LIMIT_SECONDS = 40
BASE64_LINE = re.compile("[A-Za-z0-9+/=]{60,}")
REPLIES = {b"EHLO": "250 receiver.demo.example", b"MAIL": "250 sender ok",
           b"RCPT": "250 recipient ok", b"DATA": "354 go ahead", b"QUIT": "221 bye"}


class Receiver(threading.Thread):
    """Takes one mail on a free loopback port; keeps the dialogue and the message."""

    def __init__(self):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(LIMIT_SECONDS)
        self.port = self.listener.getsockname()[1]
        self.dialogue = []
        self.message = b""

    def reply(self, stream, text):
        self.dialogue.append("R: " + text)
        stream.write(text.encode() + b"\r\n")
        stream.flush()

    def read_message(self, stream):
        lines = iter(stream.readline, b".\r\n")
        self.message = b"".join(line[1:] if line.startswith(b".") else line for line in lines)
        self.dialogue.append(f"S: ... the message, {len(self.message)} bytes, then a lone dot")
        self.reply(stream, "250 message accepted")

    def run(self):
        connection, _ = self.listener.accept()
        connection.settimeout(LIMIT_SECONDS)
        with connection, connection.makefile("rwb") as stream:
            self.reply(stream, "220 receiver.demo.example")
            for line in stream:
                self.dialogue.append("S: " + line.decode("ascii", "replace").rstrip())
                verb = line[:4].upper()
                self.reply(stream, REPLIES.get(verb, "500 not known here"))
                if verb == b"DATA":
                    self.read_message(stream)
                elif verb == b"QUIT":
                    return


def title(text):
    print(f"\n=== {text}")


def shortened(message):
    """The message for a reader: of a long run of base64 lines only the first two."""
    shown, run = [], 0
    for line in message.decode("ascii", "backslashreplace").split("\r\n"):
        run = run + 1 if BASE64_LINE.fullmatch(line) else 0
        if run <= 2:
            shown.append(line.replace("\x1b", "<ESC>"))
        elif run == 3:
            shown.append("        ... more base64 lines like these ...")
    return "\n".join(shown)


def judge(name, ok):
    print(f"  {'ok   ' if ok else 'WRONG'} {name}")
    return ok


def listing(pattern):
    return set(glob.glob("/var/opt/Quorvin/" + pattern))


def main():
    private = os.environ.get("OVRMAIL_PRIVATE_DIRS") == "1"
    if not private:
        print("No private directories can be made here: the demo sends in the real /var/opt/Quorvin,"
              "\nand removes its mail log and its trace ring there when it ends.", flush=True)
    old_work = listing("tmp/*")
    receiver = Receiver()
    receiver.start()
    content = os.urandom(20_000)
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "measured.bin")
        with open(path, "wb") as file:
            file.write(content)
        with subprocess.Popen([sys.argv[1], "127.0.0.1", str(receiver.port), SENDER, RECIPIENT,
                               SUBJECT, TEXT, path], stdout=subprocess.PIPE, text=True) as sender:
            try:
                result = sender.communicate(timeout=LIMIT_SECONDS)[0]
            finally:
                sender.kill()
    receiver.join(5)

    title("The SMTP dialogue (S: sent by the library, R: received, as in the mail log)")
    print("\n".join(receiver.dialogue))
    title("The message as it arrived (<ESC> stands for the escape byte)")
    print(shortened(receiver.message))

    message = email.message_from_bytes(receiver.message, policy=email.policy.default)
    parts = list(message.iter_parts())
    text = parts[0].get_content() if parts else ""
    attachment = parts[1].get_content() if len(parts) == 2 else b""
    title("Decoded")
    print("Subject:", message["Subject"])
    print(text)
    title(f"The attachment, {len(content)} bytes, SHA-256")
    print("before:", hashlib.sha256(content).hexdigest())
    print("after: ", hashlib.sha256(attachment).hexdigest())

    logs = listing(f"log/rmsmtp{sender.pid}.log")
    for log in logs:
        place = " (in this demo's private /var/opt, gone when it ends)" if private else ""
        title(f"The mail log, {log}{place}")
        with open(log, encoding="shift_jis", errors="backslashreplace") as file:
            print(file.read())

    title("Judgement")
    print("  the library returned:", result.strip())
    checks = [judge("the send succeeded", sender.returncode == 0 and result == "result 0\n"),
              judge("subject as sent", message["Subject"] == SUBJECT),
              judge("text as sent", text.replace("\r\n", "\n").rstrip("\n") == TEXT.rstrip("\n")),
              judge("attachment as sent", attachment == content),
              judge("a mail log was written", len(logs) == 1),
              judge("no working file left", listing("tmp/*") <= old_work)]
    if not private:
        for path in logs | listing(f"tmp2/*{sender.pid}-*.trc"):
            os.remove(path)
    return 0 if all(checks) else 1


if __name__ == "__main__":
    sys.exit(main())
