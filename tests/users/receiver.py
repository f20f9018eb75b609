"""What tests of programs share: a scripted SMTP and POP3 receiver on the loopback, a directory for
the files of a test, the parsing of what arrived.

    with Receiver(rules={"RCPT TO:<bad@x>": "550 no"}) as server:
        ... run a program against server.port ...
    server.mails     the messages as they came (bytes, dots undoubled), one per DATA
    server.commands  every command line

A rule is the longest prefix of a command that matches; its answer is sent as it is. "stall" never
answers. AUTH is offered and checked when an account (user, password) is given.
"""
import base64
import email
import email.policy
import hmac
import pathlib
import socketserver
import tempfile
import threading
import unittest

CHALLENGE = b"<1896.697170952@postoffice.example>"


def parse(raw):
    return email.message_from_bytes(raw, policy=email.policy.default)


class Scratch(unittest.TestCase):
    """A test with a directory of its own."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.dir = pathlib.Path(directory.name)

    def file(self, name, data, mode=0o600):
        path = self.dir / name
        path.write_bytes(data if isinstance(data, bytes) else data.encode())
        path.chmod(mode)
        return str(path)


class _Handler(socketserver.StreamRequestHandler):
    def say(self, text):
        self.wfile.write(text.encode("latin-1") + b"\r\n")

    def line(self):
        raw = self.rfile.readline()
        if not raw:
            raise EOFError
        return raw.rstrip(b"\r\n").decode("latin-1")

    def rule(self, command):
        found = [k for k in self.server.owner.rules if command.startswith(k)]
        return self.server.owner.rules[max(found, key=len)] if found else None

    def handle(self):
        owner = self.server.owner
        try:
            (self.pop3 if owner.protocol == "pop3" else self.smtp)(owner)
        except (EOFError, ConnectionError):
            pass

    def smtp(self, owner):
        self.say(self.rule("GREETING") or "220 test")
        while True:
            command = self.line()
            owner.commands.append(command)
            verb = command.split(" ")[0].upper()
            answer = self.rule(command)
            if answer == "stall":
                self.stall(owner)
            elif answer:
                self.say(answer)
            elif verb == "EHLO":
                self.say("250-test\r\n250 AUTH CRAM-MD5 PLAIN LOGIN" if owner.account else "250 test")
            elif verb == "AUTH":
                self.say("235 ok" if self.authenticate(command, owner) else "535 wrong")
            elif verb == "DATA":
                self.say("354 go")
                owner.mails.append(self.message())
                answer = self.rule("END") or "250 taken"
                self.stall(owner) if answer == "stall" else self.say(answer)
            elif verb == "QUIT":
                return self.say("221 bye")
            else:
                self.say("250 ok")

    def stall(self, owner):
        owner.stalled.set()
        owner.release.wait()
        raise EOFError

    def authenticate(self, command, owner):
        user, password = owner.account
        mechanism = command.split(" ")[1]
        if mechanism == "PLAIN":
            return base64.b64decode(command.split(" ")[2]).decode().split("\0")[1:] == [user, password]
        if mechanism == "LOGIN":
            answers = []
            for prompt in ("VXNlcm5hbWU6", "UGFzc3dvcmQ6"):
                self.say("334 " + prompt)
                answers.append(base64.b64decode(self.line()).decode())
            return answers == [user, password]
        self.say("334 " + base64.b64encode(CHALLENGE).decode())
        digest = hmac.new(password.encode(), CHALLENGE, "md5").hexdigest()
        return base64.b64decode(self.line()).decode() == f"{user} {digest}"

    def message(self):
        lines = []
        while (raw := self.rfile.readline()) != b".\r\n":
            if not raw:
                raise EOFError
            lines.append(raw[1:] if raw.startswith(b".") else raw)
        return b"".join(lines)

    def pop3(self, owner):
        self.say(self.rule("GREETING") or "+OK test")
        while True:
            command = self.line()
            owner.commands.append(command)
            self.say(self.rule(command) or "+OK")
            if command == "QUIT":
                return


class Receiver:
    def __init__(self, rules=None, account=None, protocol="smtp"):
        self.rules, self.account, self.protocol = rules or {}, account, protocol
        self.mails, self.commands = [], []
        self.stalled, self.release = threading.Event(), threading.Event()

    def __enter__(self):
        self._server = socketserver.ThreadingTCPServer(("127.0.0.1", 0), _Handler)
        self._server.daemon_threads = True
        self._server.owner = self
        self.port = self._server.server_address[1]
        threading.Thread(target=self._server.serve_forever, args=(0.02,), daemon=True).start()
        return self

    def __exit__(self, *_):
        self.release.set()
        self._server.shutdown()
        self._server.server_close()
