"""Send mail through libovrmail: one SMTP server, one call, one mail.

    import ovrmail

    try:
        ovrmail.send("agent@example.com", ["ops@example.com"], "ディスク使用量",
                     "90 % を超えました。", ["report.csv"], server="mail.example.com")
    except ovrmail.SendError as error:
        print(error)

send composes a mail of text (ASCII and the characters of JIS X 0208) and attachments; send_each
sends one to each recipient alone; send_message sends what Python's email package has composed:
any characters, HTML, signed content. Each blocks until the server has the mail (result Sent) or
raises a SendError; the interpreter lock is free meanwhile. Sends of several threads queue up.

Nothing on the wire is encrypted. Do not call locale.setlocale while a send runs.
Python 3.9 and later; the shared library is libovrmail.so.1. More: ovrmail-python(3).
"""
from ._errors import BadArgument, Busy, Refused, SendError, Sent, TimedOut, Unreachable
from ._message import send_message
from ._send import Attachment, send, send_each
from ._server import MECHANISMS, PopFirst, Timeouts

__all__ = ["Attachment", "BadArgument", "Busy", "MECHANISMS", "PopFirst", "Refused", "SendError",
           "Sent", "TimedOut", "Timeouts", "Unreachable", "send", "send_each", "send_message"]
