"""The same mail to a second, independent server."""
import unittest

from aiosmtpd.controller import Controller

import e2e


class Keeper:
    def __init__(self):
        self.envelopes = []

    async def handle_DATA(self, _server, _session, envelope):
        self.envelopes.append(envelope)
        return "250 kept"


class Aiosmtpd(unittest.TestCase):
    def test_receives_the_mail_with_three_attachments(self):
        keeper = Keeper()
        controller = Controller(keeper, hostname="127.0.0.1", port=e2e.free_ports(1)[0])
        controller.start()
        self.addCleanup(controller.stop)
        sandbox = e2e.Sandbox()
        self.addCleanup(sandbox.cleanup)
        mail = e2e.Mail([sandbox.random_file(name, size) for name, size in
                         (("empty.dat", 0), ("line.dat", 51), ("large.dat", 5 * 1024 * 1024))])
        recipients = [f"u{number:02}@{e2e.DOMAIN}" for number in range(1, 21)]

        result = e2e.send(controller.port, ",".join(recipients), mail.arguments())

        self.assertEqual(result, (0, ""))
        [envelope] = keeper.envelopes
        self.assertEqual((envelope.mail_from, envelope.rcpt_tos), (e2e.SENDER, recipients))
        mail.check(self, envelope.content)


if __name__ == "__main__":
    e2e.main()
