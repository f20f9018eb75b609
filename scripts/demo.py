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
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path.append(str(pathlib.Path(__file__).parents[1] / "tests/users"))
from receiver import Receiver

SENDER = "agent@demo.example"
RECIPIENT = "operator@demo.example"
SUBJECT = "【警告】ソフト表示機能の異常"
TEXT = "監視サーバーからのお知らせです。\nディスク使用率が 95% を超えました。\n.先頭が点の行もそのまま届きます。\n"
LIMIT_SECONDS = 40
BASE64_LINE = re.compile("[A-Za-z0-9+/=]{60,}")


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
    content = os.urandom(20_000)
    with tempfile.TemporaryDirectory() as folder, Receiver() as receiver:
        path = os.path.join(folder, "measured.bin")
        with open(path, "wb") as file:
            file.write(content)
        with subprocess.Popen([sys.argv[1], "127.0.0.1", str(receiver.port), SENDER, RECIPIENT,
                               SUBJECT, TEXT, path], stdout=subprocess.PIPE, text=True) as sender:
            try:
                result = sender.communicate(timeout=LIMIT_SECONDS)[0]
            finally:
                sender.kill()

    title("The SMTP dialogue (S: sent by the library, R: received, as in the mail log)")
    print("\n".join(receiver.dialogue))
    [received] = receiver.mails or [b""]
    title("The message as it arrived (<ESC> stands for the escape byte)")
    print(shortened(received))

    message = email.message_from_bytes(received, policy=email.policy.default)
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
