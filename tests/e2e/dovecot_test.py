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


def send(port, mail, *account):
    return e2e.send(port, f"{USER}@{e2e.DOMAIN}", mail.arguments() + list(account))


class SmtpAuth(unittest.TestCase):
    def account(self, mechanisms, password):
        return ("mechanisms", mechanisms, "user", dovecot.USER, "password", password)

    def test_good_password_opens_the_strict_server(self):
        mail = e2e.Mail()
        for name, mechanisms, logged in (("CRAM-MD5", CRAM_MD5, "CRAM-MD5"),
                                         ("PLAIN", PLAIN, "PLAIN"), ("LOGIN", LOGIN, "LOGIN"),
                                         ("the best of all", 7, "CRAM-MD5")):
            with self.subTest(name):
                account = self.account(mechanisms, dovecot.PASSWORD)
                self.assertEqual(send(postfix.strict_port, mail, *account), (0, ""))
                mail.check(self, postfix.take(USER)[0])
                self.assertEqual(postfix.logged(r"sasl_method=(\S+), ")[-1], logged)

    def test_bad_password(self):
        mail = e2e.Mail()
        for name, mechanisms in (("CRAM-MD5", CRAM_MD5), ("PLAIN", PLAIN), ("LOGIN", LOGIN),
                                 ("all three", 7)):
            with self.subTest(name):
                account = self.account(mechanisms, dovecot.PASSWORD + "x")
                self.assertEqual(send(postfix.auth_port, mail, *account), (2, ""))
                mail.check(self, postfix.take(USER)[0])
                code, detail = send(postfix.strict_port, mail, *account)
                self.assertEqual(code, -25)
                self.assertRegex(detail, r"^554 5\.7\.1 .*Access denied")

    def test_server_without_auth(self):
        mail = e2e.Mail()
        account = self.account(7, dovecot.PASSWORD)
        self.assertEqual(send(postfix.port, mail, *account), (2, ""))
        mail.check(self, postfix.take(USER)[0])
        code, detail = send(postfix.refusing_port, mail, *account)
        self.assertEqual(code, -26)
        self.assertRegex(detail, r"^554 5\.7\.1 ")


class PopBeforeSmtp(unittest.TestCase):
    def test_good_and_bad_password(self):
        mail = e2e.Mail()
        account = ("pop-port", dovecot.port, "user", dovecot.USER, "password")
        self.assertEqual(send(postfix.port, mail, *account, dovecot.PASSWORD), (0, ""))
        mail.check(self, postfix.take(USER)[0])
        self.assertEqual(len(dovecot.logged(r"pop3\(agent\).*Logged out")), 1)
        code, detail = send(postfix.port, mail, *account, "wrong")
        self.assertEqual(code, -15)
        self.assertRegex(detail, r"^-ERR .*Authentication failed")


if __name__ == "__main__":
    e2e.main(root=True, commands=("postfix", "dovecot"))
