"""each.py - the same mail to many, each alone; says for whom it is worth another attempt.

Usage: each.py SERVER PORT FROM TO...
Exit status 0 when every recipient's mail was sent.
"""
import sys

import ovrmail

server, port, sender, *recipients = sys.argv[1:]
outcomes = ovrmail.send_each(sender, recipients, "Maintenance", "The server stops at 22:00.",
                             server=server, port=int(port))
for recipient, outcome in outcomes:
    advice = ""
    if isinstance(outcome, ovrmail.SendError) and outcome.may_have_been_sent:
        advice = " - look before you send again"
    elif isinstance(outcome, ovrmail.SendError) and outcome.temporary:
        advice = " - send again later"
    print(f"{recipient}: {outcome.sentence}{advice}")
sys.exit(any(isinstance(outcome, ovrmail.SendError) for _, outcome in outcomes))
