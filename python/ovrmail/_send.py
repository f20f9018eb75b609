"""send, send_each: a mail that the library composes from text and files."""
from __future__ import annotations

import contextlib
import os
import re
import stat
import tempfile
from typing import Iterable, Iterator, List, Optional, Tuple, Union

from ._errors import E_ATTACHMENT, E_RECIPIENT, E_WORK_FILE, SendError, Sent, bad_argument, failure
from ._library import KIND_ATTACHMENT, Request, submit
from ._server import MECHANISMS, PopFirst, Server, Timeouts, in_range, words
from ._text import ADDRESS_MAX, address, sendable

Attachment = Union[str, "os.PathLike[str]", Tuple[str, bytes]]
"""A path, or a name and what the file holds."""

_SUBJECT_MAX, _TEXT_MAX, _PATH_MAX = 64, 10238, 1024  # bytes
_SPLIT_MIN, _SPLIT_MAX = 10, 100  # KiB
# What would cut the name short or end the header field that carries it.
_NOT_IN_NAME = re.compile(r'[\0-\x1f\x7f/:"\\]')


def joined(argument: str, recipients: Iterable[str], advice: str) -> bytes:
    """The list of recipients as the library takes it."""
    found = [address(argument, one, E_RECIPIENT) for one in recipients]
    if not found:
        raise bad_argument(argument, "there is none", E_RECIPIENT)
    together = b",".join(found)
    if len(together) > ADDRESS_MAX:
        raise bad_argument(argument, f"{len(together)} bytes with their commas, the limit is "
                                     f"{ADDRESS_MAX}: {advice}", E_RECIPIENT)
    return together


def private_file(cleanup: contextlib.ExitStack, name: str, data: bytes) -> bytes:
    """The path of a file in a directory of its own, mode 0700, that goes with the cleanup."""
    try:
        directory = cleanup.enter_context(tempfile.TemporaryDirectory(prefix="ovrmail-"))
        path = os.path.join(directory, name)
        with open(path, "wb") as file:
            file.write(data)
    except OSError as error:
        raise failure(E_WORK_FILE, str(error.errno or "")) from error
    return os.fsencode(path)


def _path_of(attachment: Union[str, "os.PathLike[str]"]) -> bytes:
    path = os.fsencode(attachment)
    shown = repr(os.fsdecode(path))
    if not 1 <= len(path) <= _PATH_MAX or b"\0" in path:
        raise bad_argument("attachments", f"{shown}: a path has 1 to {_PATH_MAX} bytes and no NUL")
    try:
        is_file = stat.S_ISREG(os.stat(path).st_mode)
        if is_file:
            open(path, "rb").close()
    except OSError as error:
        raise bad_argument("attachments", f"{shown}: {error.strerror}", E_ATTACHMENT) from error
    if not is_file:
        raise bad_argument("attachments", f"{shown}: not a file", E_ATTACHMENT)
    return path


def _stored(cleanup: contextlib.ExitStack, name: str, data: bytes) -> bytes:
    if not name or name in (".", "..") or _NOT_IN_NAME.search(name):
        raise bad_argument("attachments", f"{name!r}: a name is not empty, and holds none of "
                                          '/ : " \\ and control characters')
    return private_file(cleanup, name, data)


@contextlib.contextmanager
def _composed(sender: str, subject: str, text: str, attachments: Iterable[Attachment],
              split: Optional[int], replace: Optional[str]) -> Iterator[Request]:
    if replace is not None:
        replace = sendable("replace", replace, _TEXT_MAX, None)
    if split is not None:
        in_range("split", split, _SPLIT_MIN, _SPLIT_MAX)
    subject = sendable("subject", subject, _SUBJECT_MAX, replace)
    # The library ends the text with a line break of its own.
    text = re.sub(r"(\r\n|\r|\n)\Z", "", text)
    text = sendable("text", text, _TEXT_MAX, replace)
    with contextlib.ExitStack() as cleanup:
        paths = [_stored(cleanup, *item) if isinstance(item, tuple) else _path_of(item)
                 for item in attachments]
        yield Request(address("sender", sender), subject, text,
                      [(KIND_ATTACHMENT, path) for path in paths], split)


def send(sender: str, recipients: Union[str, Iterable[str]], subject: str, text: str,
         attachments: Iterable[Attachment] = (), *, server: str, port: int = 25,
         user: Optional[str] = None, password: Optional[str] = None,
         mechanisms: Union[str, Iterable[str]] = MECHANISMS,
         pop_first: Union[bool, PopFirst, None] = None, split: Optional[int] = None,
         timeouts: Optional[Timeouts] = None, replace: Optional[str] = None) -> Sent:
    """Compose and send one mail, now.

    sender       address alone, ASCII, 1 to 256 characters
    recipients   addresses, or a text with commas between them; 256 characters in all. One that
                 the server refuses refuses the mail for all: see send_each
    subject      up to 64 bytes: 64 ASCII or 32 Japanese characters; a line break becomes a blank
    text         up to 10,238 bytes: ASCII and the characters of JIS X 0208 (2 bytes each)
    attachments  paths of files, and pairs of a name and bytes. The receiver sees the name as it
                 is; of a path, what stands behind the last "/" or ":"
    server       host name or dotted IPv4 address, 1 to 256 characters
    port         1 to 65,535; 0: the "smtp" service, else 25
    user         account of SMTP AUTH, or of POP3 with pop_first; 1 to 64 bytes in UTF-8
    password     its password, 0 to 64 bytes
    mechanisms   those of SMTP AUTH that may be used; all but cram-md5 show the password to the
                 network
    pop_first    log in to a POP3 server first: a PopFirst, or True for one with its defaults
    split        KiB, 10 to 100: a mail above it goes out in message/partial pieces; None: whole
    timeouts     seconds for the answers of the server; None: Timeouts()
    replace      what to send for each character that cannot be sent, as "?"; None: BadArgument

    Returns Sent when the server has the mail. Raises BadArgument (nothing sent; it names the
    argument, and the character or the limit), Refused, Unreachable, TimedOut, Busy, or SendError
    for any other failure. Blocks for as long as timeouts allow, a signal does not end it; look-up
    and connecting are bounded by the system alone.
    """
    to = Server(server, port, user, password, mechanisms, pop_first, timeouts)
    joint = joined("recipients", words(recipients), "use send_each")
    with _composed(sender, subject, text, attachments, split, replace) as request:
        return submit(request, joint, to)


def send_each(sender: str, recipients: Union[str, Iterable[str]], subject: str, text: str,
              attachments: Iterable[Attachment] = (), *, server: str, port: int = 25,
              user: Optional[str] = None, password: Optional[str] = None,
              mechanisms: Union[str, Iterable[str]] = MECHANISMS,
              pop_first: Union[bool, PopFirst, None] = None, split: Optional[int] = None,
              timeouts: Optional[Timeouts] = None,
              replace: Optional[str] = None) -> List[Tuple[str, Union[Sent, SendError]]]:
    """Send the same mail to each recipient alone, any number of them, one after the other.

    The arguments are those of send. Returns each recipient with what came of its mail, in order:
    Sent, or the SendError that send would have raised. Raises BadArgument for any other argument,
    before the first mail.
    """
    to = Server(server, port, user, password, mechanisms, pop_first, timeouts)
    outcomes: List[Tuple[str, Union[Sent, SendError]]] = []
    with _composed(sender, subject, text, attachments, split, replace) as request:
        for recipient in words(recipients):
            try:
                outcome: Union[Sent, SendError] = submit(
                    request, address("recipients", recipient, E_RECIPIENT), to)
            except SendError as error:
                outcome = error
            outcomes.append((recipient, outcome))
    return outcomes
