"""e2e.py - what the tests with real servers share: the servers, one send, the judgement of a mail.

Every server is an instance of its own: configuration, queue and logs lie in a temporary directory,
it listens on a free loopback port and is stopped by its process id.
"""
import email
import email.policy
import os
import pathlib
import pwd
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

HELPER = os.environ.get("OVRMAIL_SEND_MAIL", "send_mail")
SKIPPED = 77
DOMAIN = "e.test"
SENDER = f"agent@{DOMAIN}"
SUBJECT = "【警告】ソフト表示機能の異常"
TEXT = "監視サーバーからのお知らせです。\n.先頭が点の行\nASCII only\n.\n能表ソ 終わり\n"
SEND_LIMIT_SECONDS = 240


def main(*, root=False, commands=()):
    """Runs the tests of the calling file; says why and skips where they cannot run."""
    missing = [name for name in commands if not shutil.which(name)]
    if missing:
        print(f"skipped: not installed: {' '.join(missing)}")
        sys.exit(SKIPPED)
    with open("/proc/self/uid_map", encoding="ascii") as uid_map:
        real_root = os.getuid() == 0 and int(uid_map.read().split()[2]) > 65536
    if root and not real_root:
        print("skipped: the mail server changes users, which needs root")
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)


def free_ports(count):
    probes = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [probe.getsockname()[1] for probe in probes]
    for probe in probes:
        probe.close()
    return ports


def wait_until(condition, what, seconds=30):
    deadline = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError(what)
        time.sleep(0.05)
    return result


def answers(port):
    try:
        with socket.create_connection(("127.0.0.1", port), 1) as probe:
            return bool(probe.recv(64))
    except OSError:
        return False


class Sandbox(tempfile.TemporaryDirectory):
    """A temporary directory that the servers' own users can reach."""

    def __init__(self):
        super().__init__(prefix="ovrmail-e2e-")
        os.chmod(self.name, 0o755)
        self.path = pathlib.Path(self.name)

    def make(self, name, owner="root"):
        path = self.path / name
        path.mkdir()
        user = pwd.getpwnam(owner)
        os.chown(path, user.pw_uid, user.pw_gid)
        return path

    def random_file(self, name, size):
        path = self.path / name
        path.write_bytes(os.urandom(size))
        return path


class Server:
    """A server program in the foreground; it ends with stop(), or with the test itself."""

    def __init__(self, command, ports, log, **options):
        self.log = log
        self.process = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", *command],
                                        stdin=subprocess.DEVNULL, **options)
        try:
            for port in ports:
                wait_until(lambda port=port: answers(port), f"{command[0]} on port {port}")
        except TimeoutError:
            print(log.read_text(errors="replace") if log.exists() else "no log", file=sys.stderr)
            self.stop()
            raise

    def logged(self, pattern):
        return re.findall(pattern, self.log.read_text(errors="replace"))

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(20)


class Postfix(Server):
    """Delivers mail for DOMAIN into one maildir per recipient.

    port offers no AUTH, auth_port and strict_port do (Dovecot serves it). strict_port refuses
    senders that are not authenticated, and refusing_port, without AUTH, every sender. tls_ports are
    strict too and demand TLS, each with its file of tls_chains, a key and its certificate.
    """
    MASTER = "/usr/lib/postfix/sbin/master"

    def __init__(self, sandbox, users, tls_chains=()):
        self.config = sandbox.make("postfix")
        self.queue = sandbox.make("queue")
        self.boxes = sandbox.make("boxes", "nobody")
        self.port, self.auth_port, self.strict_port, self.refusing_port, *self.tls_ports = \
            free_ports(4 + len(tls_chains))
        self.tls_chains = tls_chains
        log = sandbox.path / "postfix.log"
        nobody = pwd.getpwnam("nobody")
        settings = {
            "compatibility_level": "3.6",
            "queue_directory": self.queue,
            "data_directory": sandbox.make("postfix-data", "postfix"),
            "maillog_file": log,
            "maillog_file_prefixes": sandbox.path,
            "inet_interfaces": "127.0.0.1",
            "inet_protocols": "ipv4",
            "myhostname": f"mx.{DOMAIN}",
            "mydestination": "",
            "alias_maps": "",
            "smtpd_peername_lookup": "no",
            "smtpd_error_sleep_time": "0",
            "smtpd_forbid_bare_newline": "yes",
            "smtpd_forbid_bare_newline_exclusions": "",
            "message_size_limit": "0",
            "virtual_mailbox_limit": "0",
            "virtual_mailbox_domains": DOMAIN,
            "virtual_mailbox_base": self.boxes,
            "virtual_mailbox_maps": f"texthash:{self.config}/boxes",
            "virtual_uid_maps": f"static:{nobody.pw_uid}",
            "virtual_gid_maps": f"static:{nobody.pw_gid}",
            "smtpd_sasl_type": "dovecot",
            "smtpd_sasl_path": "private/auth",
            "smtpd_relay_restrictions": "permit_sasl_authenticated,permit_mynetworks,reject",
        }
        text = "".join(f"{key} = {value}\n" for key, value in settings.items())
        (self.config / "main.cf").write_text(text)
        (self.config / "master.cf").write_text(self.services())
        rows = "".join(f"{user}@{DOMAIN} {user}/\n" for user in users)
        (self.config / "boxes").write_text(rows)
        for path in self.config.iterdir():
            os.utime(path, (0, 0))  # Postfix waits for a second where a file was just written
        subprocess.run(["postfix", "-c", self.config, "check"], check=True)
        super().__init__([self.MASTER, "-c", str(self.config), "-s"], [self.port], log)

    def services(self):
        with_auth = "-o smtpd_sasl_auth_enable=yes"
        refuse = "-o smtpd_sender_restrictions=permit_sasl_authenticated,reject"
        rows = [f"127.0.0.1:{self.port} inet n - n - - smtpd",
                f"127.0.0.1:{self.auth_port} inet n - n - - smtpd {with_auth}",
                f"127.0.0.1:{self.strict_port} inet n - n - - smtpd {with_auth} {refuse}",
                f"127.0.0.1:{self.refusing_port} inet n - n - - smtpd {refuse}",
                *(f"127.0.0.1:{port} inet n - n - - smtpd {with_auth} {refuse}"
                  f" -o smtpd_tls_security_level=encrypt -o smtpd_tls_chain_files={chain}"
                  for port, chain in zip(self.tls_ports, self.tls_chains)),
                "tlsmgr unix - - n 1000? 1 tlsmgr",
                "cleanup unix n - n - 0 cleanup", "qmgr unix n - n 300 1 qmgr",
                "postlog unix-dgram n - n - 1 postlogd", "proxymap unix - - n - - proxymap"]
        rows += [f"{name} unix - - n - - {name}" for name in
                 ("verify", "error", "smtp", "local", "anvil", "scache")]
        rows += ["rewrite unix - - n - - trivial-rewrite", "virtual unix - n n - - virtual",
                 "retry unix - - n - - error", "flush unix n - n 1000? 0 flush"]
        rows += [f"{name} unix - - n - 0 bounce" for name in ("bounce", "defer", "trace")]
        return "\n".join(rows) + "\n"

    def take(self, user, count=1):
        """Waits for exactly count mails in the user's box, removes and returns them."""
        box = self.boxes / user / "new"
        names = wait_until(lambda: (found := list(box.glob("*"))) and len(found) >= count and found,
                           f"{count} mails for {user}", 60)
        mails = [name.read_bytes() for name in names]
        for name in names:
            name.unlink()
        assert len(mails) == count, f"{len(mails)} mails for {user}, not {count}"
        return mails

    def take_pieces(self, user):
        """The same for the pieces of one mail; they say themselves how many they are."""
        box = self.boxes / user / "new"
        first = wait_until(lambda: next(box.glob("*"), None), f"a piece for {user}", 60)
        total = re.search(rb"; total=(\d+);", first.read_bytes())
        pieces = self.take(user, int(total.group(1)))
        return sorted(pieces, key=lambda piece: int(re.search(rb"number=(\d+);", piece).group(1)))


class Dovecot(Server):
    """POP3 server and, where a queue directory of Postfix is given, its SASL service."""
    USER, PASSWORD = "agent", "Pass w0rd+/="

    def __init__(self, sandbox, postfix_queue):
        [self.port] = free_ports(1)
        log = sandbox.path / "dovecot.log"
        users = sandbox.path / "users"
        users.write_text(f"{self.USER}:{{PLAIN}}{self.PASSWORD}\n")
        config = sandbox.path / "dovecot.conf"
        config.write_text(f"""
base_dir = {sandbox.make("dovecot-run")}
state_dir = {sandbox.make("dovecot-state")}
log_path = {log}
protocols = pop3
ssl = no
disable_plaintext_auth = no
auth_mechanisms = plain login cram-md5
auth_failure_delay = 0
mail_location = maildir:{sandbox.make("dovecot-mail", "nobody")}/%n
first_valid_uid = 1
passdb {{
  driver = passwd-file
  args = {users}
}}
userdb {{
  driver = static
  args = uid=nobody gid=nogroup home=/nonexistent
}}
service pop3-login {{
  chroot =
  inet_listener pop3 {{
    address = 127.0.0.1
    port = {self.port}
  }}
  inet_listener pop3s {{
    port = 0
  }}
}}
# Without the delays that grow with every bad password of an address.
service anvil {{
  unix_listener anvil-auth-penalty {{
    mode = 0
  }}
}}
service auth {{
  unix_listener {postfix_queue}/private/auth {{
    mode = 0660
    user = postfix
    group = postfix
  }}
}}
""")
        super().__init__(["dovecot", "-F", "-c", str(config)], [self.port], log)


class Mail:
    """The two sides of one mail: arguments for a send, and a judge of what arrived."""

    def __init__(self, attachments=(), charset="shift_jis", text=TEXT):
        self.attachments = list(attachments)
        self.charset = charset
        self.text = text

    def arguments(self):
        arguments = {"from": SENDER, "subject": SUBJECT.encode(self.charset),
                     "text": self.text.encode(self.charset)}
        return [part for item in arguments.items() for part in item] + \
            [part for path in self.attachments for part in ("attach", path)]

    def check(self, test, raw, joined=False):
        """joined: put together from pieces. The address fields then stayed with the pieces, and
        each piece brought the empty line before its end mark along."""
        message = email.message_from_bytes(raw, policy=email.policy.default)
        test.assertFalse(message.defects)
        test.assertEqual(message["Subject"], SUBJECT)
        test.assertEqual(message["From"], None if joined else SENDER)
        parts = list(message.iter_parts()) or [message]
        test.assertEqual(parts[0].get_content_charset(), "iso-2022-jp")
        self.check_text(test, parts[0].get_content(), joined)
        test.assertEqual([part.get_filename() for part in parts[1:]],
                         [path.name for path in self.attachments])
        for part, path in zip(parts[1:], self.attachments):
            test.assertTrue(part.get_content() == path.read_bytes(), f"{path.name} differs")

    def check_text(self, test, text, joined):
        lines = [line for line in text.splitlines() if line or not joined]
        while lines and not lines[-1]:
            lines.pop()
        test.assertEqual(lines, self.text.splitlines())


def send(port, to, arguments, environment=None):
    """Runs the helper; returns the result code and the detail text."""
    command = [HELPER, "port", str(port), "to", to, *map(os.fsencode, map(as_text, arguments))]
    done = subprocess.run(command, stdout=subprocess.PIPE, timeout=SEND_LIMIT_SECONDS, check=True,
                          env={**os.environ, **(environment or {})})
    code, detail = done.stdout.split(b"\n", 1)
    return int(code), detail.decode("ascii", "replace")


def as_text(argument):
    return os.fsdecode(argument) if isinstance(argument, bytes) else str(argument)
