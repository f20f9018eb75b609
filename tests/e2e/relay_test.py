"""The relays of examples/relay, as they lie there but for names, ports and paths, on the way to a
Postfix that demands TLS and AUTH, and to servers that must not get the mail."""
import os
import pathlib
import re
import subprocess
import unittest

import e2e

FILES = pathlib.Path(__file__).parents[2] / "examples/relay"
HOST = "localhost"
USER, PASSWORD = e2e.Dovecot.USER, e2e.Dovecot.PASSWORD
# The server of the provider, and what stunnel and Postfix say of it.
CASES = {
    "other name": ("Subject checks failed", "certificate not verified"),
    "other authority": ("local issuer certificate", "not verified"),
    "no TLS": ("not RFC 2487 compliant", "TLS is required, but was not"),
    "right": None}
QUEUED = [f"postfix{number}" for number in range(len(CASES))]  # recipients, one for each case


def certificate(name, host, *issuer):
    """A file with a key and its certificate, signed by the issuer or by the key itself."""
    chain = sandbox.path / f"{name}.pem"
    signed = [part for path in issuer for part in ("-CA", path, "-CAkey", path)]
    made = subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                           "ec_paramgen_curve:P-256", "-nodes", "-subj", f"/CN={name}", "-addext",
                           f"subjectAltName=DNS:{host}", "-keyout", chain, *signed],
                          check=True, capture_output=True).stdout
    chain.write_bytes(chain.read_bytes() + made)
    return chain


def setUpModule():
    global sandbox, authority, provider, servers
    sandbox = e2e.Sandbox()
    unittest.addModuleCleanup(sandbox.cleanup)
    authority = certificate("authority", "authority.test")
    provider = e2e.Postfix(sandbox, ["stunnel", *QUEUED], [
        certificate("other", "other.test", authority),
        certificate("foreign", HOST, certificate("nobody", "nobody.test")),
        certificate("right", HOST, authority)])
    unittest.addModuleCleanup(provider.stop)
    unittest.addModuleCleanup(e2e.Dovecot(sandbox, provider.queue).stop)
    servers = [*provider.tls_ports[:2], provider.strict_port, provider.tls_ports[2]]


def configure(name, folder, values):
    """Lays a file of the examples where the relay reads it, with the values that it has here."""
    values = {"smtp.example.com": HOST, "/etc/ssl/certs/ca-certificates.crt": authority, **values}
    text = re.sub(r"(?m)^[#;].*\n", "", (FILES / name).read_text())
    text = re.sub("|".join(map(re.escape, values)), lambda found: str(values[found[0]]), text)
    assert "example" not in text, text
    path = folder / name.removeprefix("postfix-")
    path.write_text(text)
    path.chmod(0o600 if "passwd" in name else 0o644)
    os.utime(path, (0, 0))  # as e2e.Postfix does
    return path


class Relays(unittest.TestCase):
    def send(self, port, user, account=()):
        return e2e.send(port, f"{user}@{e2e.DOMAIN}", [*e2e.Mail().arguments(), *account])

    def expect_delivered(self, user):
        [raw] = provider.take(user)
        e2e.Mail().check(self, raw)
        self.assertIn(b"with ESMTPSA", raw)  # over TLS, from a client that has logged in

    def test_stunnel(self):
        log = sandbox.path / "relay.log"
        account = ["mechanisms", 2, "user", USER, "password", PASSWORD]
        for (case, says), server in zip(CASES.items(), servers):
            with self.subTest(case):
                [port] = e2e.free_ports(1)
                path = configure("stunnel.conf", sandbox.path, {"587": server, "2525": port})
                with log.open("wb") as out:
                    self.addCleanup(e2e.Server(["stunnel", path], [port], log, stderr=out).stop)
                code, detail = self.send(port, "stunnel", account)
                if says:
                    self.assertEqual(code, -7, detail)
                    self.assertRegex(log.read_text(), says[0])
                    self.assertFalse(provider.logged("to=<stunnel@"))
                else:
                    self.assertEqual((code, detail), (0, ""))
                    self.expect_delivered("stunnel")

    def test_null_client(self):
        config, log = sandbox.make("client"), sandbox.path / "client.log"
        [port] = e2e.free_ports(1)
        values = {"2525": port, "/etc/postfix": config, "agent@example.com:password":
                  f"{USER}:{PASSWORD}", "/var/spool/postfix": sandbox.make("client-queue"),
                  "/var/lib/postfix": sandbox.make("client-data", "postfix"), "alias_maps =":
                  f"alias_maps =\nmaillog_file = {log}\nmaillog_file_prefixes = {sandbox.path}"}

        def run(program, *arguments):
            return subprocess.run([program, "-c", config, *arguments], check=True,
                                  stdout=subprocess.PIPE, text=True).stdout

        def reason(user):
            """Why the mail for this user waits in the queue."""
            return re.findall(rf'"deferred".*"{user}@.*"delay_reason": "(.*?)"',
                              run("postqueue", "-j"))

        for user, (case, says), server in zip(QUEUED, CASES.items(), servers):
            with self.subTest(case):
                for name in ("postfix-main.cf", "postfix-master.cf", "postfix-sasl_passwd"):
                    configure(name, config, {"587": server, **values})
                if user == QUEUED[0]:
                    run("postfix", "check")  # makes the queue's directories
                client = e2e.Server([e2e.Postfix.MASTER, "-c", config, "-s"], [port], log)
                self.addCleanup(client.stop)
                self.assertEqual(self.send(port, user), (0, ""))
                if says:
                    [said] = e2e.wait_until(lambda user=user: reason(user), f"{user} deferred")
                    self.assertRegex(said, says[1])
                    self.assertFalse(provider.logged(f"to=<{user}@"))
                    client.stop()
        run("postqueue", "-f")
        for user in QUEUED:
            self.expect_delivered(user)


if __name__ == "__main__":
    e2e.main(root=True, commands=("postfix", "dovecot", "stunnel", "openssl"))
