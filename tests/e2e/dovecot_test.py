"""Authentication against Dovecot: SMTP AUTH through Postfix, and POP before SMTP."""
import unittest

import e2e

LOGIN, PLAIN, CRAM_MD5 = 1, 2, 4
USER = "box"


def setUpModule():
    global postfix, dovecot
    sandbox = e2e.Sandbox()
    unittest.addModuleCleanup(sandbox.cleanup)
    postfix = e2e.Postfix(sandbox, [USER])
    unittest.addModuleCleanup(postfix.stop)
    dovecot = e2e.Dovecot(sandbox, postfix.queue)
    unittest.addModuleCleanup(dovecot.stop)


class Accounts(unittest.TestCase):
    def expect(self, code, detail, port, *account):
        """Sends a mail, which arrives unless the result says otherwise."""
        mail = e2e.Mail()
        result, said = e2e.send(port, f"{USER}@{e2e.DOMAIN}", mail.arguments() + list(account))
        self.assertEqual(result, code)
        self.assertRegex(said, f"^{detail}")
        if code >= 0:
            self.assertEqual(said, "")
            mail.check(self, postfix.take(USER)[0])

    def test_smtp_auth(self):
        for name, mechanisms, logged in (("CRAM-MD5", CRAM_MD5, "CRAM-MD5"),
                                         ("PLAIN", PLAIN, "PLAIN"), ("LOGIN", LOGIN, "LOGIN"),
                                         ("the best of all", 7, "CRAM-MD5")):
            with self.subTest(name):
                account = ("mechanisms", mechanisms, "user", dovecot.USER, "password")
                self.expect(0, "", postfix.strict_port, *account, dovecot.PASSWORD)
                self.assertEqual(postfix.logged(r"sasl_method=(\S+), ")[-1], logged)
                self.expect(2, "", postfix.auth_port, *account, "wrong")
                self.expect(-25, r"554 5\.7\.1 .*Access denied", postfix.strict_port, *account,
                            "wrong")
        account = ("mechanisms", 7, "user", dovecot.USER, "password", dovecot.PASSWORD)
        self.expect(2, "", postfix.port, *account)
        self.expect(-26, r"554 5\.7\.1 ", postfix.refusing_port, *account)

    def test_pop_before_smtp(self):
        account = ("pop-port", dovecot.port, "user", dovecot.USER, "password")
        self.expect(0, "", postfix.port, *account, dovecot.PASSWORD)
        self.assertEqual(len(dovecot.logged(r"pop3\(agent\).*Logged out")), 1)
        self.expect(-15, "-ERR .*Authentication failed", postfix.port, *account, "wrong")


if __name__ == "__main__":
    e2e.main(root=True, commands=("postfix", "dovecot"))
