"""libovrmail.so.1 itself: its records, its entry, and the lock that lets one send in at a time.

The records are those of mail_types.h and codeset.h, field by field. Texts of an account are bytes
that can be overwritten, so that no copy of a password outlives the call.
"""
from __future__ import annotations

import contextlib
import ctypes
import locale
import os
import threading
from typing import Iterator, List, NamedTuple, Optional, Tuple, Union

from ._errors import Sent, failure
from ._server import Server, account_bytes

KIND_RECIPIENT, KIND_BODY, KIND_ATTACHMENT, KIND_PREPARED, KIND_PREPARED_HEADER = 1, 2, 3, 5, 6
_AUTH_POP_BEFORE_SMTP, _AUTH_SMTP = 1, 2
_MECHANISMS = {"login": 1, "plain": 2, "cram-md5": 4}
_SPLIT_DEFAULT = 64  # KiB; not used when the mail goes out whole
_DETAIL_SIZE = 256
_ACCOUNT_SIZE = 65
_HOST_SIZE = 257


class MailEntry(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_uint32), ("reserved", ctypes.c_int32),
                ("value", ctypes.c_char_p)]


class MailSplitOption(ctypes.Structure):
    _fields_ = [("lSplitSize", ctypes.c_int32), ("ulPort", ctypes.c_uint32)]


class MailTimeout(ctypes.Structure):
    _fields_ = [("ulConnectTimeOut", ctypes.c_uint32), ("ulMailFromTimeOut", ctypes.c_uint32),
                ("ulRcptToTimeOut", ctypes.c_uint32), ("ulDataTimeOut", ctypes.c_uint32),
                ("ulSendDataTimeOut", ctypes.c_uint32), ("ulEndDataTimeOut", ctypes.c_uint32)]


class MailPopAccount(ctypes.Structure):
    _fields_ = [("ulPort", ctypes.c_uint32), ("lWaitMs", ctypes.c_int32),
                ("szUser", ctypes.c_ubyte * _ACCOUNT_SIZE),
                ("szPassword", ctypes.c_ubyte * _ACCOUNT_SIZE),
                ("szHost", ctypes.c_ubyte * _HOST_SIZE), ("usTimeOut", ctypes.c_uint16)]


class MailAuthAccount(ctypes.Structure):
    _fields_ = [("ulMechanisms", ctypes.c_uint32), ("szUser", ctypes.c_ubyte * _ACCOUNT_SIZE),
                ("szPassword", ctypes.c_ubyte * _ACCOUNT_SIZE)]


class MailLangInfo(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int32), ("name", ctypes.c_char * 32)]


class Request(NamedTuple):
    """One mail, checked. Texts are of sendable characters."""

    sender: bytes
    subject: str
    text: Optional[str]
    """None: a prepared message"""
    files: List[Tuple[int, bytes]]
    """kind and path of each"""
    split: Optional[int]
    """KiB of a piece; None: the mail goes out whole"""


def _load() -> ctypes.CDLL:
    try:
        library = ctypes.CDLL("libovrmail.so.1")
    except OSError as error:
        raise ImportError(f"ovrmail needs the shared library libovrmail.so.1: {error}") from error
    entry = library.OvRm_SendEMail
    entries, text, word = ctypes.POINTER(MailEntry), ctypes.c_char_p, ctypes.c_uint32
    entry.restype = ctypes.c_int32
    entry.argtypes = [entries, word, entries, word, text, text, text, word,
                      ctypes.POINTER(MailSplitOption), ctypes.POINTER(MailTimeout), entries, text]
    return library


_lib = _load()
_euc_locales = (MailLangInfo * 9).in_dll(_lib, "stEucLangInfo")
_lock = threading.Lock()


def _forget_lock() -> None:
    """A child born while a send runs would wait without end: the thread that sends is not in it."""
    global _lock
    _lock = threading.Lock()


os.register_at_fork(after_in_child=_forget_lock)


def expected_codec() -> str:
    """The code in which the library takes text: EUC-JP where the locale of the process, all
    categories together, is in its table (kind 1: exactly, 2: in any case), else Shift_JIS."""
    name = locale.setlocale(locale.LC_ALL).encode()
    is_euc = any(name == entry.name if entry.kind == 1 else name.lower() == entry.name.lower()
                 for entry in _euc_locales if entry.kind != 0)
    return "euc_jp" if is_euc else "shift_jis"


def _store(field: "ctypes.Array[ctypes.c_ubyte]", text: str) -> None:
    for at, byte in enumerate(account_bytes(text)):
        field[at] = byte


@contextlib.contextmanager
def _account(server: Server) -> Iterator[Optional[MailEntry]]:
    """The authentication option of one call, zeroed when the call has ended."""
    if server.account is None:
        yield None
        return
    record: Union[MailPopAccount, MailAuthAccount]
    if server.pop_first:
        pop = server.pop_first
        record = MailPopAccount(ulPort=pop.port, lWaitMs=round(pop.wait * 1000),
                                usTimeOut=pop.timeout)
        _store(record.szHost, server.pop_host.decode())
    else:
        bits = sum(_MECHANISMS[name] for name in set(server.mechanisms))
        record = MailAuthAccount(ulMechanisms=bits)
    kind = _AUTH_POP_BEFORE_SMTP if server.pop_first else _AUTH_SMTP
    try:
        _store(record.szUser, server.account[0])
        _store(record.szPassword, server.account[1])
        yield MailEntry(kind, 0, ctypes.cast(ctypes.pointer(record), ctypes.c_char_p))
    finally:
        ctypes.memset(ctypes.byref(record), 0, ctypes.sizeof(record))


def submit(request: Request, recipients: bytes, server: Server) -> Sent:
    """Sends a request, after those of other threads, and judges the result."""
    detail = ctypes.create_string_buffer(_DETAIL_SIZE)
    split = MailSplitOption(request.split or _SPLIT_DEFAULT, server.port)
    timeouts = MailTimeout(*server.timeouts) if server.timeouts else None
    to = MailEntry(KIND_RECIPIENT, 0, recipients)
    with _lock, _account(server) as account:
        codec = expected_codec()
        text = None if request.text is None else request.text.encode(codec)
        parts = (MailEntry * (1 + len(request.files)))(
            MailEntry(KIND_BODY, 0, text),
            *(MailEntry(kind, 0, path) for kind, path in request.files))
        result = _lib.OvRm_SendEMail(
            ctypes.byref(to), 1, parts, len(parts), request.sender,
            request.subject.encode(codec), server.host, int(request.split is not None),
            ctypes.byref(split), ctypes.byref(timeouts) if timeouts else None,
            ctypes.byref(account) if account else None, detail)
    told = detail.value.decode("utf-8", "backslashreplace").rstrip("\r\n")
    if result < 0:
        raise failure(result, told)
    return Sent(result)
