"""Files and long text over messages: what is larger than a message goes out as many, and any of them, a few more than
the payload takes, bring it back.

    sender = kosc.transfer.Sender("A text of any length ...")         # or bytes, or Sender.from_file("picture.png")
    for block in sender.sound(rounds=2): ...                          # samples to play, one after the other

    collector = kosc.transfer.Collector()
    for message in kosc.listen("recording.wav"):
        event = collector.take(message)
        if event.state == "finished":
            print(event.payload.text or event.payload.save("received"))

Anyone who hears can read, and anyone who plays can send under any name. With a key, `key=kosc.transfer.Key(...)` at both
ends, payloads are sealed, and the collector gives out nothing else.

It is computed by the shared library libkosc_transfer.so.1; docs/transfer.md has the messages byte by byte.
"""

from __future__ import annotations

import contextlib
import ctypes
import errno
import itertools
import os
import weakref
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Callable, Iterable, Iterator, NamedTuple, Optional, Union

import numpy as np
from numpy.typing import DTypeLike, NDArray

from . import _arrays as arrays
from . import _transfer_library as library
from ._bands import DEFAULT_BAND, BandChoice, bands_apart
from ._names import numbered, safe_name
from ._transfer_library import transfer_library
from .modem import MESSAGE_LENGTH, SAMPLE_RATE, encode
from .receiver import Message
from .sealing import SEALED, WINDOW, Key, NotOpenedError, Opener, as_key, seal

__all__ = ["BYTES", "FILE", "MOST_BYTES", "TEXT", "Collector", "Event", "Key", "NotOpenedError", "Payload", "Sender",
           "encode_together", "safe_name"]

MOST_BYTES = 1048576
"""The longest payload; the name of a file, and 49 bytes when it is sealed, are part of it."""
BYTES, TEXT, FILE = 0, 1, 2
MOST_NAME, MOST_NUMBERS = 255, 1000
PEAK = arrays.FULL_SCALE - 1
STATES = {library.PLAIN: "plain", library.PROGRESS: "progress", library.REPEATED: "repeated",
          library.FINISHED: "finished", library.MISMATCH: "mismatch", library.REFUSED: "refused"}


@dataclass(frozen=True)
class Payload:
    """What a sender had to send. Nothing in it is trusted: with no key, anybody can have sent it."""

    kind: int
    """BYTES, TEXT or FILE, or another number if the sender says so"""
    data: bytes
    """the bytes; of a file its contents, of a text its UTF-8"""
    name: str = ""
    """the file's name as it was sent, which may be anything: see save() and safe_name()"""
    sealed_at: Optional[int] = None
    """Unix time when it was sealed; None when it was not"""

    @property
    def text(self) -> Optional[str]:
        """The text, if it is one; may have control characters, which a terminal obeys."""
        try:
            return self.data.decode() if self.kind == TEXT else None
        except UnicodeDecodeError:
            return None

    def save(self, folder: Union[str, "os.PathLike[str]"], overwrite: bool = False) -> Path:
        """Writes the bytes into a file of `folder` under what safe_name() makes of the name, and gives its path.

        Where there is such a file, and it is not to be overwritten, a number is added to the name.
        """
        name = safe_name(self.name)
        if overwrite:
            path, part = Path(folder) / name, Path(folder) / f".kosc-{os.urandom(8).hex()}"
            _write_new(part, self.data)
            os.replace(part, path)  # a link there is not followed, and a full disk spoils nothing
            return path
        for number in range(1, MOST_NUMBERS):
            path = Path(folder) / numbered(name, number)
            with contextlib.suppress(FileExistsError):
                _write_new(path, self.data)
                return path
        raise FileExistsError(errno.EEXIST, "there are too many files of this name", str(path))


def _write_new(path: Path, data: bytes) -> None:
    """A file that was not there, whole or not at all."""
    with open(path, "xb") as file:
        try:
            file.write(data)
            file.flush()
        except OSError:
            path.unlink()
            raise


def _packed(content: Union[str, bytes], name: Optional[str]) -> tuple[int, bytes]:
    if isinstance(content, str):
        if name is not None:
            raise TypeError("a file's contents are bytes, not str")
        return TEXT, content.encode()
    data = arrays.octets(content, "content")
    if name is None:
        return BYTES, data
    encoded = name.encode()
    if len(encoded) > MOST_NAME:
        raise ValueError(f"a file's name has up to {MOST_NAME} bytes, not {len(encoded)}")
    return FILE, bytes([len(encoded)]) + encoded + data


def _unpacked(kind: int, payload: bytes, sealed_at: Optional[int]) -> Payload:
    if kind != FILE:
        return Payload(kind, payload, "", sealed_at)
    end = 1 + payload[0] if payload else 1
    if len(payload) < end:
        raise ValueError("it is said to be a file, and is none")
    return Payload(kind, payload[end:], payload[1:end].decode(errors="replace"), sealed_at)


class Sender:
    """A payload that is being sent: an endless sequence of messages, of which any `needed` suffice.

    `content` is text or bytes; bytes with a `name` are a file. `key` seals them. The same content is received once
    only, unless another `nonce`, any number of 32 bits, makes it another transfer; what is sealed is always another.
    """

    def __init__(self, content: Union[str, bytes], name: Optional[str] = None, key: Union[Key, bytes, None] = None,
                 nonce: int = 0) -> None:
        kind, payload = _packed(content, name)
        if key is not None:
            kind, payload = kind + SEALED, seal(payload, kind, as_key(key))
        if not 1 <= len(payload) <= MOST_BYTES:
            raise ValueError(f"the payload has {len(payload)} bytes; 1 to {MOST_BYTES} can be sent")
        self._library = transfer_library()
        self._sender = self._library.sender_init(payload, len(payload), kind, arrays.count(nonce, "nonce", 0, 2**32 - 1))
        if not self._sender:
            raise MemoryError("there is no memory for the payload")
        weakref.finalize(self, self._library.sender_free, self._sender)

    @classmethod
    def from_file(cls, path: Union[str, "os.PathLike[str]"], key: Union[Key, bytes, None] = None,
                  nonce: int = 0) -> Sender:
        """A sender of a file with the last part of its path for a name."""
        with open(path, "rb") as file:
            return cls(file.read(MOST_BYTES + 1), Path(path).name, key, nonce)

    @property
    def needed(self) -> int:
        """Messages that a receiver needs, whichever they are."""
        return self._library.sender_needed(self._sender)

    @property
    def round(self) -> int:
        """Messages of one round: enough for who loses one in five; two rounds are for who loses every second."""
        return self._library.round(self.needed)

    def message(self, index: int) -> bytes:
        """Any message of the sequence."""
        message = ctypes.create_string_buffer(MESSAGE_LENGTH)
        self._library.sender_message(self._sender, arrays.count(index, "index", 0, 2**32 - 1), message)
        return message.raw

    def messages(self, rounds: Optional[float] = None, start: int = 0) -> Iterator[bytes]:
        """The messages from `start` on: as many rounds as that, or without end."""
        count = None if rounds is None else int(rounds * self.round)
        for index in itertools.count(start) if count is None else range(start, start + count):
            yield self.message(index % 2**32)

    def sound(self, rounds: Optional[float] = 1, start: int = 0,
              band: Union[BandChoice, Iterable[BandChoice]] = DEFAULT_BAND, gap: float = 0.0,
              dtype: DTypeLike = np.int16) -> Iterator[NDArray[Any]]:
        """The same as sound, a block of samples at a time: a frame, and `gap` seconds of silence.

        With several bands, each frame carries as many messages at once; `band` is as for Receiver.
        """
        bands = bands_apart(band)
        silence = np.zeros(round(gap * SAMPLE_RATE), dtype)
        messages = self.messages(rounds, start)
        while several := tuple(itertools.islice(messages, len(bands))):
            yield np.concatenate((encode_together(several, bands, dtype), silence))


def encode_together(messages: Iterable[Union[str, bytes]], band: Union[BandChoice, Iterable[BandChoice]],
                    dtype: DTypeLike = np.int16) -> NDArray[Any]:
    """One frame of sound with a message on each band, in their order; the sum of several reaches full scale."""
    bands, texts = bands_apart(band), list(messages)
    if not 1 <= len(texts) <= len(bands):
        raise ValueError(f"{len(bands)} bands carry 1 to {len(bands)} messages at once, not {len(texts)}")
    if len(texts) == 1:
        return encode(texts[0], dtype, bands[0])
    total = sum(encode(text, np.float64, each) for text, each in zip(texts, bands))
    pcm = np.rint(total * (PEAK / np.abs(total).max())).astype(np.int16)
    return pcm if np.dtype(dtype) == np.int16 else (pcm / arrays.FULL_SCALE).astype(dtype)


class Event(NamedTuple):
    """What a message was to a Collector."""

    state: str
    """"plain": no part of a transfer; "progress": one more is held; "repeated": nothing new; "finished": the payload is
    whole; "mismatch": what was collected does not fit together, and begins anew; "refused": `reason` says why"""
    id: int = 0
    """of the transfer, among those of its size"""
    held: int = 0
    """messages held that bring the transfer further"""
    needed: int = 0
    """messages that it needs"""
    payload: Optional[Payload] = None
    """what was sent, with "finished" alone"""
    reason: str = ""
    """why it was refused, in words"""


class Collector:
    """Takes messages of any number of transfers, in any order, with gaps and repeats, and gives each payload once.

    With a `key` it gives out nothing but what was sealed with it, no longer than `window` seconds ago (by `clock`; None
    for recordings, of whatever day), and each only once. `most_bytes` is the longest payload that it takes; with the
    usual limits it holds 6 MiB at most, whatever it hears.
    """

    def __init__(self, key: Union[Key, bytes, None] = None, window: Optional[float] = WINDOW,
                 clock: Optional[Callable[[], float]] = None, most_bytes: int = MOST_BYTES) -> None:
        more = {} if clock is None else {"clock": clock}
        self._opener = None if key is None else Opener(as_key(key), window, **more)
        self._library = transfer_library()
        limits = self._library.default_limits()
        limits.payload_bytes = self._most_bytes = arrays.count(most_bytes, "most_bytes", 1, MOST_BYTES)
        self._receiver = self._library.receiver_init(ctypes.byref(limits))
        if not self._receiver:
            raise MemoryError("there is no memory for a receiver")
        weakref.finalize(self, self._library.receiver_free, self._receiver)

    def take(self, message: Union[Message, bytes]) -> Event:
        """What a message is, a kosc.Message or its 28 bytes, and how far its transfer is."""
        data = message.data if isinstance(message, Message) else arrays.octets(message, "message")
        if len(data) != MESSAGE_LENGTH:
            raise ValueError(f"a message has {MESSAGE_LENGTH} bytes, not {len(data)}")
        event = library.Event()
        result = self._library.take(self._receiver, data, ctypes.byref(event))
        if result == library.NO_MEMORY:
            raise MemoryError("there is no memory for the transfer")
        state = STATES[result]
        place = (event.id, event.held, event.needed)
        if state == "plain" and self._opener is not None:
            return Event("refused", *place, reason="it is not sealed")
        if state == "refused" or event.payload_len > self._most_bytes:  # before the end only messages are counted
            return Event("refused", *place, reason="it is longer than is allowed")
        if state != "finished":
            return Event(state, *place)
        try:
            return Event(state, *place, self._opened(ctypes.string_at(event.payload, event.payload_len), event.kind))
        except ValueError as error:
            return Event("refused", *place, reason=str(error))

    def _opened(self, payload: bytes, kind: int) -> Payload:
        if self._opener is None:
            if kind & SEALED:
                raise NotOpenedError("it is sealed, and there is no key")
            return _unpacked(kind, payload, None)
        if not kind & SEALED:
            raise NotOpenedError("it is not sealed")
        content, sealed_at = self._opener.open(payload, kind)
        return _unpacked(kind - SEALED, content, sealed_at)
