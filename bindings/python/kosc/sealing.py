"""Sealed payloads: only who has the key reads them, forges none, and plays none back later.

The form is docs/transfer.md's. The cipher is libsodium's secretbox, by the package PyNaCl; pass phrases become keys by
scrypt (Percival 2009), of Python's own hashlib.
"""

from __future__ import annotations

import hashlib
import os
import struct
import time
from typing import Any, Callable, Optional, Union

from . import _arrays as arrays

KEY_BYTES, NONCE_BYTES, TAG_BYTES, HEAD_BYTES = 32, 24, 16, 9
SEALED = 128  # added to the kind of a payload
SALT = b"kosc-transfer-01"
SCRYPT_COST, SCRYPT_BLOCK = 2**17, 8
SCRYPT_MEMORY = 2**28  # it takes 128 MiB
MOST_PHRASE = 1024
WINDOW = 3600.0


class NotOpenedError(ValueError):
    """A payload is sealed and does not open; the text says why."""


def _secret_box(key: bytes) -> Any:
    try:
        from nacl.secret import SecretBox
    except ImportError:
        raise ValueError("sealing takes the package PyNaCl, which is not installed") from None
    return SecretBox(key)


def _without_line_end(data: bytes) -> bytes:
    return data[:-2] if data.endswith(b"\r\n") else data[:-1] if data.endswith(b"\n") else data


class Key:
    """What a sender and its receivers share: 32 bytes, as they are or from a file or a pass phrase."""

    def __init__(self, data: bytes) -> None:
        self._data = arrays.octets(data, "a key")
        if len(self._data) != KEY_BYTES:
            raise ValueError(f"a key has {KEY_BYTES} bytes, not {len(self._data)}")

    @classmethod
    def from_file(cls, path: Union[str, "os.PathLike[str]"]) -> Key:
        """The key in a file: 32 bytes, or 64 hexadecimal digits and perhaps a line end."""
        with open(path, "rb") as file:
            data = file.read(2 * KEY_BYTES + 3)
        digits = _without_line_end(data)
        if len(data) != KEY_BYTES and len(digits) == 2 * KEY_BYTES and not digits.strip(b"0123456789abcdefABCDEF"):
            data = bytes.fromhex(digits.decode())
        if len(data) != KEY_BYTES:
            raise ValueError(f"{path} has no key: neither {KEY_BYTES} bytes nor {2 * KEY_BYTES} hexadecimal digits")
        return cls(data)

    @classmethod
    def from_passphrase(cls, phrase: Union[str, bytes]) -> Key:
        """The key of a pass phrase, which takes half a second and 128 MiB; take six random words or more."""
        data = phrase.encode() if isinstance(phrase, str) else arrays.octets(phrase, "a pass phrase")
        data = _without_line_end(data)
        if not 1 <= len(data) <= MOST_PHRASE:
            raise ValueError(f"a pass phrase has 1 to {MOST_PHRASE} bytes, not {len(data)}")
        return cls(hashlib.scrypt(data, salt=SALT, n=SCRYPT_COST, r=SCRYPT_BLOCK, p=1, maxmem=SCRYPT_MEMORY,
                                  dklen=KEY_BYTES))

    def __bytes__(self) -> bytes:
        return self._data

    def __repr__(self) -> str:
        return "Key(...)"  # not into logs


def as_key(key: Union[Key, bytes]) -> Key:
    return key if isinstance(key, Key) else Key(key)


def seal(content: bytes, kind: int, key: Union[Key, bytes], now: Optional[float] = None,
         nonce: Optional[bytes] = None) -> bytes:
    """The payload, of kind `kind` + 128, that hides `content`.

    `now` is the Unix time that it states, the clock's unless given; `nonce` are 24 bytes that must never be used twice
    with one key, random ones unless given.
    """
    head = struct.pack("<QB", int(time.time() if now is None else now), kind)
    box = _secret_box(bytes(as_key(key)))
    return bytes(box.encrypt(head + content, os.urandom(NONCE_BYTES) if nonce is None else nonce))


class Opener:
    """Opens what was sealed with a key, once each, and nothing whose time is further than `window` seconds from now.

    Without a window (None), for recordings, only the repetition is refused. `clock` gives Unix time.
    """

    def __init__(self, key: Union[Key, bytes], window: Optional[float] = WINDOW,
                 clock: Callable[[], float] = time.time) -> None:
        if window is not None and not window >= 0:
            raise ValueError(f"a window has 0 seconds or more, not {window}")
        self._box = _secret_box(bytes(as_key(key)))
        self._window, self._clock = window, clock
        self._taken: dict[bytes, int] = {}  # nonces, and the times that came with them

    def open(self, payload: bytes, kind: int) -> tuple[bytes, int]:
        """The content, and the Unix time when it was sealed; `kind` is the payload's, 128 included.

        Raises NotOpenedError for what this key did not seal, and for what is old, early, or was opened before.
        """
        from nacl.exceptions import CryptoError

        if len(payload) < NONCE_BYTES + TAG_BYTES + HEAD_BYTES:
            raise NotOpenedError("it is too short for a sealed payload")
        try:
            plain = self._box.decrypt(payload)
        except CryptoError:
            raise NotOpenedError("another key sealed it, or it was forged") from None
        sealed_at, inner = struct.unpack_from("<QB", plain)
        if inner + SEALED != kind:
            raise NotOpenedError("it was sealed as something else than it is sent as")
        self._remember(payload[:NONCE_BYTES], sealed_at)
        return plain[HEAD_BYTES:], sealed_at

    def _remember(self, nonce: bytes, sealed_at: int) -> None:
        now = self._clock()
        if self._window is not None:
            if abs(now - sealed_at) > self._window:
                raise NotOpenedError(f"it was sealed {abs(now - sealed_at):.0f} s "
                                     f"{'ago' if now > sealed_at else 'from now'}; {self._window:.0f} s are allowed")
            self._taken = {old: at for old, at in self._taken.items() if abs(now - at) <= self._window}
        if nonce in self._taken:
            raise NotOpenedError("it was taken before")
        self._taken[nonce] = sealed_at
