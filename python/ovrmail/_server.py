"""The server and the account of a send: the records a caller fills in, and their checks.

The limits are those of the library, checked here as well so that a mistake is explained by the
argument's name.
"""
from __future__ import annotations

from typing import Iterable, Iterator, List, NamedTuple, Optional, Tuple, Union

from ._errors import bad_argument
from ._text import host

MECHANISMS = ("cram-md5", "plain", "login")
"""Every mechanism of SMTP AUTH, in the order in which the library tries them."""

_ACCOUNT_MAX = 64  # bytes: user name; password
_PORT_MAX = 65535
_TIMEOUT_MIN, _TIMEOUT_MAX = 60, 3600  # seconds
_POP_WAIT_MAX = 3600  # seconds


class Timeouts(NamedTuple):
    """Time for the answers of the server, in seconds, each 60 to 3,600. The defaults are those of
    RFC 5321 4.5.3.2."""

    greeting: int = 300
    """greeting, EHLO or HELO, SMTP AUTH"""
    mail: int = 300
    """MAIL FROM"""
    rcpt: int = 300
    """each RCPT TO"""
    data: int = 120
    """DATA"""
    block: int = 180
    """each block of the message"""
    end: int = 600
    """the end of the message and its reply"""


class PopFirst(NamedTuple):
    """POP before SMTP: log in to a POP3 server first, with the user and password of the call."""

    server: Optional[str] = None
    """name or dotted address, 1 to 256 characters; None: the SMTP server"""
    port: int = 0
    """1 to 65,535; 0: the "pop3" service, else 110"""
    wait: float = 0
    """seconds to wait after the POP session, 0 to 3,600"""
    timeout: int = 60
    """seconds for each reply line, 60 to 3,600"""


def words(value: Union[str, Iterable[str]]) -> List[str]:
    """The items of a list, or of a text separated by commas, without blanks around them."""
    items = [value] if isinstance(value, str) else value
    return [word.strip(" \t") for item in items for word in item.split(",")]


def in_range(argument: str, value: float, low: int, high: int) -> None:
    if not low <= value <= high:
        raise bad_argument(argument, f"{value}, needs a number from {low} to {high}")


def account_bytes(text: str) -> Iterator[int]:
    """One by one: an encoded copy of a password could not be overwritten."""
    return (byte for character in text for byte in character.encode("utf-8", "surrogateescape"))


def _account_text(argument: str, text: str, low: int) -> str:
    size = sum(1 for _ in account_bytes(text))
    if not low <= size <= _ACCOUNT_MAX:
        raise bad_argument(argument, f"{size} bytes, needs {low} to {_ACCOUNT_MAX}")
    if any(character in "\0\r\n" for character in text):
        raise bad_argument(argument, "holds a line break or NUL")
    return text


class Server:
    """The settings of send that say where and how, checked."""

    def __init__(self, server: str, port: int, user: Optional[str], password: Optional[str],
                 mechanisms: Union[str, Iterable[str]], pop_first: Union[bool, PopFirst, None],
                 timeouts: Optional[Timeouts]) -> None:
        self.host = host("server", server)
        in_range("port", port, 0, _PORT_MAX)
        self.port = port
        self.timeouts = timeouts
        for name, seconds in (timeouts._asdict() if timeouts else {}).items():
            in_range(f"timeouts.{name}", seconds, _TIMEOUT_MIN, _TIMEOUT_MAX)
        self.mechanisms = self._known(mechanisms)
        self.pop_first = PopFirst() if pop_first is True else pop_first or None
        self.pop_host = self.host
        self.account = self._account(user, password)
        if self.pop_first:
            self._check_pop(self.pop_first)

    @staticmethod
    def _known(mechanisms: Union[str, Iterable[str]]) -> List[str]:
        names = [name.lower() for name in words(mechanisms)]
        for name in names or [""]:
            if name not in MECHANISMS:
                raise bad_argument("mechanisms", f"knows {', '.join(MECHANISMS)}, not {name!r}")
        return names

    @staticmethod
    def _account(user: Optional[str], password: Optional[str]) -> Optional[Tuple[str, str]]:
        if user is None and password is None:
            return None
        if user is None:
            raise bad_argument("user", "missing, though there is a password")
        if password is None:
            raise bad_argument("password", "missing, though there is a user")
        return _account_text("user", user, 1), _account_text("password", password, 0)

    def _check_pop(self, pop: PopFirst) -> None:
        if self.account is None:
            raise bad_argument("user", "missing, pop_first needs it")
        if pop.server is not None:
            self.pop_host = host("pop_first.server", pop.server)
        in_range("pop_first.port", pop.port, 0, _PORT_MAX)
        in_range("pop_first.wait", pop.wait, 0, _POP_WAIT_MAX)
        in_range("pop_first.timeout", pop.timeout, _TIMEOUT_MIN, _TIMEOUT_MAX)
