"""Which characters a mail of send carries: ASCII and JIS X 0208, as ISO-2022-JP on the wire.

Half-width katakana exist in Shift_JIS but not in ISO-2022-JP, ESC would be taken for a code switch,
and NUL ends the text. Addresses and names of machines are ASCII.
"""
from __future__ import annotations

import re
from typing import Optional

from ._errors import E_ARGUMENT, bad_argument

ADDRESS_MAX = 256  # bytes: sender, server, all recipients with their commas

# Code points that Japanese input methods produce on some systems for characters whose JIS X 0208
# mapping names another one; yen sign and overline, which Shift_JIS has in place of "\\" and "~".
_TWINS = str.maketrans("\uff5e\uff0d\u2225\uffe0\uffe1\uffe2\u00a5\u203e",
                       "\u301c\u2212\u2016\u00a2\u00a3\u00ac\uffe5\uffe3")
_NOT_IN_ISO_2022_JP = re.compile("[\0\x1b\uff61-\uff9f]")
_NOT_IN_ADDRESS = re.compile("[^ -~]|[<>]")
_NOT_IN_FIELD = re.compile("[^!-~]")


def _is_carried(character: str) -> bool:
    try:
        character.encode("shift_jis")
    except UnicodeEncodeError:
        return False
    return not _NOT_IN_ISO_2022_JP.match(character)


def _shown(character: str) -> str:
    printed = f"{character} " if character.isprintable() else ""
    return f"{printed}(U+{ord(character):04X})"


def sendable(argument: str, text: str, limit: int, replace: Optional[str]) -> str:
    """The text with LF line ends, in characters that Shift_JIS and EUC-JP both have in the same
    number of bytes. What cannot be sent becomes replace. limit: bytes."""
    text = text.replace("\r\n", "\n").replace("\r", "\n").translate(_TWINS)
    unsendable = {character for character in set(text) if not _is_carried(character)}
    if unsendable:
        if replace is None:
            at = min(map(text.index, unsendable))
            line = text.count("\n", 0, at) + 1
            place = at - text.rfind("\n", 0, at)
            raise bad_argument(argument, f"line {line}, character {place}: cannot be sent: "
                                         f"{_shown(text[at])}")
        text = text.translate(dict.fromkeys(map(ord, unsendable), replace))
    size = len(text.encode("shift_jis"))
    if size > limit:
        raise bad_argument(argument, f"{size} bytes once converted, the limit is {limit}")
    return text


def _within(argument: str, text: str, forbidden: re.Pattern[str], result: int) -> bytes:
    refused = forbidden.search(text)
    if refused:
        raise bad_argument(argument, f"{text!r}: character {refused.start() + 1} cannot stand in "
                                     f"it: {_shown(refused[0])}", result)
    if not 1 <= len(text) <= ADDRESS_MAX:
        raise bad_argument(argument, f"{len(text)} characters, needs 1 to {ADDRESS_MAX}", result)
    return text.encode("ascii")


def address(argument: str, text: str, result: int = E_ARGUMENT) -> bytes:
    """An address alone, without a name and angle brackets."""
    return _within(argument, text, _NOT_IN_ADDRESS, result)


def host(argument: str, text: str) -> bytes:
    """A host name or a dotted address."""
    return _within(argument, text, _NOT_IN_FIELD, E_ARGUMENT)
