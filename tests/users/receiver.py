"""What tests of programs share: a scripted SMTP and POP3 receiver on the loopback, a directory for
the files of a test, the parsing of what arrived.

    with Receiver(rules={"RCPT TO:<bad@x>": "550 no"}) as server:
        ... run a program against server.port ...
    server.mails     the messages as they came (bytes, dots undoubled), one per DATA
    server.commands  every command line
    server.dialogue  these and every reply, with "S: " and "R: " in front as in the mail log

A rule is the longest prefix of a command that matches, GREETING or END (of a message); its answer
is sent as it is. "stall" never answers, "close" ends the connection, a function is called for its
answer (None: the usual one). AUTH is offered and checked when an account (user, password) is given.
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
        self.server.owner.dialogue.append("R: " + text)
        self.wfile.write(text.encode("latin-1") + b"\r\n")

    def line(self):
        raw = self.rfile.readline()
        if not raw:
            raise EOFError
        line = raw.rstrip(b"\r\n").decode("latin-1")
        self.server.owner.dialogue.append("S: " + line)
        return line

    def answer(self, command, usual):
        """Sends what the rule for the command says, or the usual answer."""
        owner = self.server.owner
        found = [k for k in owner.rules if command.startswith(k)]
        answer = owner.rules[max(found, key=len)] if found else None
        answer = answer() if callable(answer) else answer
        if answer == "stall":
            owner.stalled.set()
            owner.release.wait()
        if answer in ("stall", "close"):
            raise EOFError
        self.say(answer or (usual() if callable(usual) else usual))
        return answer

    def handle(self):
        owner = self.server.owner
        try:
            (self.pop3 if owner.protocol == "pop3" else self.smtp)(owner)
        except (EOFError, ConnectionError):
            pass

    def smtp(self, owner):
        hello = "250-test\r\n250 AUTH CRAM-MD5 PLAIN LOGIN" if owner.account else "250 test"
        usual = {"EHLO": hello, "DATA": "354 go", "QUIT": "221 bye"}
        self.answer("GREETING", "220 test")
        verb = ""
        while verb != "QUIT":
            command = self.line()
            owner.commands.append(command)
            verb = command.split(" ")[0].upper()
            said = self.answer(command, (lambda: self.authenticate(command, owner)) if verb == "AUTH"
                               else usual.get(verb, "250 ok"))
            if verb == "DATA" and not said:
                owner.mails.append(self.message())
                owner.dialogue.append(f"S: ... the message, {len(owner.mails[-1])} bytes, then a lone dot")
                self.answer("END", "250 taken")

    def authenticate(self, command, owner):
        user, password = owner.account
        mechanism, *initial = command.split(" ")[1:]
        if mechanism == "PLAIN":
            good = base64.b64decode(initial[0]).decode().split("\0")[1:] == [user, password]
        elif mechanism == "LOGIN":
            good = [self.ask(b"Username:"), self.ask(b"Password:")] == [user, password]
        else:
            digest = hmac.new(password.encode(), CHALLENGE, "md5").hexdigest()
            good = self.ask(CHALLENGE) == f"{user} {digest}"
        return "235 ok" if good else "535 wrong"

    def ask(self, challenge):
        self.say("334 " + base64.b64encode(challenge).decode())
        return base64.b64decode(self.line()).decode()

    def message(self):
        lines = []
        while (raw := self.rfile.readline()) != b".\r\n":
            if not raw:
                raise EOFError
            lines.append(raw[1:] if raw.startswith(b".") else raw)
        return b"".join(lines)

    def pop3(self, owner):
        self.answer("GREETING", "+OK test")
        while "QUIT" not in owner.commands:
            owner.commands.append(self.line())
            self.answer(owner.commands[-1], "+OK")


class Receiver:
    def __init__(self, rules=None, account=None, protocol="smtp"):
        self.rules, self.account, self.protocol = rules or {}, account, protocol
        self.mails, self.commands, self.dialogue = [], [], []
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
