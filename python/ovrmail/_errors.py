"""How a send ends: the result codes of the library as exceptions, and the object of a success."""
from __future__ import annotations

import errno
import os
from dataclasses import dataclass
from typing import Dict, Type

SENT, SENT_UNCONVERTED, SENT_UNAUTHENTICATED = 0, 1, 2
E_ARGUMENT, E_MEMORY, E_WORK_FILE, E_TIMEOUT, E_RECIPIENT = -1, -2, -3, -4, -5
E_REJECTED, E_SYSTEM, E_ATTACHMENT, E_BUSY, E_CONNECT = -6, -7, -8, -9, -10
E_POP_REFUSED, E_POP_SYSTEM, E_POP_TIMEOUT, E_POP_CONNECT = -15, -16, -17, -18
E_INTERNAL, E_REJECTED_AUTH_FAILED, E_REJECTED_NO_AUTH = -20, -25, -26

_SENTENCES = {
    SENT: "sent: the server has the mail",
    SENT_UNCONVERTED:
        "sent, but the conversion of subject or text failed; both may be incomplete",
    SENT_UNAUTHENTICATED:
        "sent, but without the SMTP AUTH asked for: the server offers none of the mechanisms, or "
        "refused the account",
    E_ARGUMENT: "not sent: an argument is out of range",
    E_MEMORY: "not sent: no memory",
    E_WORK_FILE: "not sent: a working file or an attachment could not be made, written or read",
    E_TIMEOUT: "the server did not answer in time; it may or may not have the mail",
    E_RECIPIENT: "not sent: the recipients are not usable",
    E_REJECTED: "not sent: the server refused",
    E_SYSTEM:
        "the connection failed during the conversation; the server may or may not have the mail",
    E_ATTACHMENT: "not sent: an attachment cannot be examined",
    E_BUSY: "not sent: another send is running in this process",
    E_CONNECT: "not sent: the server cannot be reached",
    E_POP_REFUSED: "not sent: the POP3 login was refused",
    E_POP_SYSTEM: "not sent: the connection to the POP3 server failed",
    E_POP_TIMEOUT: "not sent: the POP3 server did not answer in time",
    E_POP_CONNECT: "not sent: the POP3 server cannot be reached",
    E_INTERNAL: "not sent: an internal failure",
    E_REJECTED_AUTH_FAILED:
        "not sent: SMTP AUTH failed, and the server refused the sender or a recipient",
    E_REJECTED_NO_AUTH:
        "not sent: the server offers none of the mechanisms, and refused the sender or a recipient",
}
# What the detail of a result is; of others it is empty.
_REPLIES = (E_REJECTED, E_POP_REFUSED, E_REJECTED_AUTH_FAILED, E_REJECTED_NO_AUTH)
_LOOKUPS = (E_CONNECT, E_POP_CONNECT)
# Codes of the resolver; they share the field with errno.
_RESOLVER = {1: "Unknown host", 2: "Host name lookup failure", 3: "Unknown server error",
             4: "No address associated with name"}


class SendError(OSError):
    """The mail was not sent, or may not have been.

    sentence  what happened, for people: with the argument, file or reply; also str(error)
    result    result code of the library, below 0 (ovrmail_api(3))
    detail    what the library tells besides: a reply, errno or resolver code in decimal, or ""

    An OSError, as the exceptions of smtplib are.
    """

    def __init__(self, sentence: str = _SENTENCES[E_INTERNAL], result: int = E_INTERNAL,
                 detail: str = "") -> None:
        super().__init__(sentence)
        self.sentence = sentence
        self.result = result
        self.detail = detail

    @property
    def reply(self) -> str:
        """The server's reply, as "550 no such user"; "" where no server refused."""
        return self.detail if self.result in _REPLIES else ""

    @property
    def temporary(self) -> bool:
        """Whether the same call may succeed later: the server said so (4yz), fell silent or was
        not reached, another send ran, memory or disk was full."""
        if self.result == E_WORK_FILE:
            return self.detail in (str(errno.ENOSPC), str(errno.EDQUOT))
        return (self.result in (E_MEMORY, E_TIMEOUT, E_BUSY, E_CONNECT, E_POP_TIMEOUT,
                                E_POP_CONNECT)
                or self.result != E_POP_REFUSED and self.reply.startswith("4"))

    @property
    def may_have_been_sent(self) -> bool:
        """Whether the server may have the mail, so that a repeated call may double it."""
        return self.result in (E_TIMEOUT, E_SYSTEM)


class Refused(SendError):
    """A server refused: the mail (results -6, -25, -26) or the POP3 login (-15). See reply."""


class Unreachable(SendError):
    """No connection to the SMTP server (-10) or the POP3 server (-18)."""


class TimedOut(SendError):
    """The SMTP server (-4) or the POP3 server (-17) did not answer in time."""


class Busy(SendError):
    """A send that did not come through this module is running in the process (-9)."""


class BadArgument(SendError, ValueError):
    """An argument cannot be used (-1, -5, -8); nothing was sent, no server was asked.

    argument  its name; the sentence says what is wrong, and the limit where there is one
    """

    def __init__(self, sentence: str = _SENTENCES[E_ARGUMENT], result: int = E_ARGUMENT,
                 detail: str = "", argument: str = "") -> None:
        super().__init__(sentence, result, detail)
        self.argument = argument


@dataclass(frozen=True)
class Sent:
    """The server has the mail.

    result  0, or a remark: 1 unconverted, 2 unauthenticated
    """

    result: int = SENT

    @property
    def unconverted(self) -> bool:
        """Whether the library failed to convert subject or text: both may be incomplete."""
        return self.result == SENT_UNCONVERTED

    @property
    def unauthenticated(self) -> bool:
        """Whether the mail went out without the SMTP AUTH that was asked for."""
        return self.result == SENT_UNAUTHENTICATED

    @property
    def sentence(self) -> str:
        """What happened, for people."""
        return _SENTENCES.get(self.result, _SENTENCES[SENT])


_CLASSES: Dict[int, Type[SendError]] = {
    E_ARGUMENT: BadArgument, E_RECIPIENT: BadArgument, E_ATTACHMENT: BadArgument,
    E_REJECTED: Refused, E_POP_REFUSED: Refused, E_REJECTED_AUTH_FAILED: Refused,
    E_REJECTED_NO_AUTH: Refused, E_CONNECT: Unreachable, E_POP_CONNECT: Unreachable,
    E_TIMEOUT: TimedOut, E_POP_TIMEOUT: TimedOut, E_BUSY: Busy,
}


def bad_argument(argument: str, why: str, result: int = E_ARGUMENT) -> BadArgument:
    return BadArgument(f"not sent: {argument}: {why}", result, argument=argument)


def _explain(result: int, detail: str) -> str:
    if result in _REPLIES and detail:
        return f"; it said: {detail}"
    code = int(detail) if detail.isdecimal() else 0
    if result in _REPLIES or not 0 < code < 1 << 31:
        return ""
    reason = _RESOLVER.get(code) if result in _LOOKUPS else None
    return f": {reason or os.strerror(code)} ({code})"


def failure(result: int, detail: str) -> SendError:
    """The exception of a result below 0."""
    sentence = _SENTENCES.get(result, "not sent: a result this module does not know")
    return _CLASSES.get(result, SendError)(sentence + _explain(result, detail), result, detail)
