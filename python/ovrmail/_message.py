"""send_message: a message that Python's email package has composed, sent as it is.

The library sends it as a prepared message: header and content from two files with LF line ends and
doubled leading dots (RFC 5321 4.5.2).
"""
from __future__ import annotations

import contextlib
import copy
import io
import re
from email.generator import BytesGenerator
from email.message import Message
from email.utils import formatdate, getaddresses, make_msgid
from typing import Iterable, List, Optional, Union

from ._errors import Sent, bad_argument
from ._library import KIND_PREPARED, KIND_PREPARED_HEADER, Request, submit
from ._send import joined, private_file
from ._server import MECHANISMS, PopFirst, Server, Timeouts, words
from ._text import address, sendable

_LINE_MAX = 998  # bytes (RFC 5321 4.5.3.1.6)
_REMEDY = "encode this part in base64 or quoted-printable"
_LOGGED = 32  # characters of the subject: as many as fit the log, whatever they are


def _addresses(msg: Message, *fields: str) -> List[str]:
    values = [str(value) for field in fields for value in msg.get_all(field, [])]
    return [found for _, found in getaddresses(values) if found]


def _resent(msg: Message) -> str:
    """The prefix of the fields that make the envelope (RFC 5322 3.6.6)."""
    blocks = len(msg.get_all("Resent-Date", []))
    if blocks > 1:
        raise bad_argument("msg", 'more than one block of "Resent-" fields: give from_addr and '
                                  "to_addrs")
    return "Resent-" if blocks else ""


def _flat(msg: Message) -> bytes:
    """The message in ASCII, with LF line ends. A signed one keeps the bytes that were signed."""
    policy = msg.policy.clone(linesep="\n", mangle_from_=False)
    if not any(part.get_content_type() == "multipart/signed" for part in msg.walk()):
        policy = policy.clone(cte_type="7bit")
    if getattr(policy, "utf8", False):
        policy = policy.clone(utf8=False)
    out = io.BytesIO()
    try:
        BytesGenerator(out, policy=policy).flatten(msg)
    except (UnicodeError, LookupError) as error:
        raise bad_argument("msg", f"8-bit bytes without a usable charset; {_REMEDY}") from error
    data = out.getvalue().replace(b"\r\n", b"\n").replace(b"\r", b"\n")
    for number, line in enumerate(data.split(b"\n"), 1):
        if len(line) > _LINE_MAX:
            raise bad_argument("msg", f"line {number}: {len(line)} bytes, the limit is {_LINE_MAX}")
        if b"\0" in line or not line.isascii():
            raise bad_argument("msg", f"line {number}: 8-bit or NUL bytes; {_REMEDY}")
    return data


def send_message(msg: Message, from_addr: Optional[str] = None,
                 to_addrs: Union[str, Iterable[str], None] = None, *, server: str, port: int = 25,
                 user: Optional[str] = None, password: Optional[str] = None,
                 mechanisms: Union[str, Iterable[str]] = MECHANISMS,
                 pop_first: Union[bool, PopFirst, None] = None,
                 timeouts: Optional[Timeouts] = None) -> Sent:
    """Send a finished message: any characters, HTML, signed content. smtplib has one of this name.

    msg        EmailMessage or another Message; it is not changed. It goes out in ASCII, without
               Bcc, and with Date and Message-ID where it has none; a line has at most 998 bytes.
               The receiver gets one empty line more at the end
    from_addr  sender; None: the address in Sender, else the first in From
    to_addrs   recipients, or a text with commas between them; None: all in To, Cc and Bcc.
               256 characters in all: send to more in several calls

    Of a message with Resent-Date the fields are Resent-Sender, Resent-From and so on. The other
    arguments are those of send. Returns Sent when the server has the mail; raises what send raises.
    Unlike smtplib's, one refused recipient refuses the mail for all (Refused).
    """
    to = Server(server, port, user, password, mechanisms, pop_first, timeouts)
    if from_addr is None:
        prefix = _resent(msg)
        senders = _addresses(msg, prefix + "Sender") or _addresses(msg, prefix + "From")
        if not senders:
            raise bad_argument("from_addr", "missing, and the message names no sender")
        from_addr = senders[0]
    if to_addrs is None:
        prefix = _resent(msg)
        to_addrs = _addresses(msg, prefix + "To", prefix + "Cc", prefix + "Bcc")
    sender = address("from_addr", from_addr)
    joint = joined("to_addrs", dict.fromkeys(words(to_addrs)), "send to some of them at a time")

    sent = copy.copy(msg)
    for field in ("Bcc", "Resent-Bcc"):
        del sent[field]  # makes a list of fields of its own
    if "Date" not in sent:
        sent["Date"] = formatdate(localtime=True)
    if "Message-ID" not in sent:
        sent["Message-ID"] = make_msgid(domain=from_addr.rpartition("@")[2])
    head, _, content = re.sub(rb"(?m)^\.", b"..", _flat(sent)).partition(b"\n\n")
    subject = sendable("subject", str(msg.get("Subject", ""))[:_LOGGED], 2 * _LOGGED, "?")
    with contextlib.ExitStack() as cleanup:
        files = [(KIND_PREPARED, private_file(cleanup, "content", content)),
                 (KIND_PREPARED_HEADER, private_file(cleanup, "header", head + b"\n\n"))]
        outcome = submit(Request(sender, subject, None, files, None), joint, to)
    return outcome
