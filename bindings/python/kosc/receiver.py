"""Sound into messages."""

from __future__ import annotations

import contextlib
import ctypes
import math
import os
import threading
import wave
import weakref
from typing import Any, BinaryIO, Callable, Iterable, Iterator, NamedTuple, Optional, Union

import numpy as np
from numpy.typing import NDArray

from . import _arrays as arrays
from . import _records as records
from ._library import lib
from .modem import FRAME_LENGTH, SAMPLE_RATE

MOST_CHANNELS = 64
BLOCK = 4096  # samples a channel that are read and decoded at a time
LITTLE_ENDIAN = "<i2"
DECODED = 1
SECOND_LOOK_MEASURE = 2

Samples = Union["NDArray[np.int16]", bytes, bytearray, memoryview]
Source = Union[str, "os.PathLike[str]", wave.Wave_read, BinaryIO, Iterable[Samples]]


class Message(NamedTuple):
    """A message that was heard.

    `snr_db` and `drift_ppm` are what the second look measured: the power of a subcarrier over the noise, and by how
    much the sender's clock, or its motion, raised the frequencies. Without a second look they are NaN.
    """

    time: float
    """seconds from the start of reception to the frame's first sample"""
    channel: int
    """channel that heard it, counted from 0 as in the columns of the samples"""
    data: bytes
    """the message's 28 bytes"""
    snr_db: float
    drift_ppm: float

    @property
    def text(self) -> Optional[str]:
        """The message as UTF-8 text without the zero bytes at its end; None when it is no such text."""
        try:
            return self.data.rstrip(b"\0").decode("utf-8")
        except UnicodeDecodeError:
            return None


class _Channel:
    """One channel's receiver, and the messages that its last blocks yielded."""

    def __init__(self, channel: int, second_look: bool) -> None:
        self.heard: list[Message] = []
        heard = self.heard  # not self: the library's callback must not keep the receiver alive

        def on_frame(report: Any, _: Any) -> None:
            frame = report.contents
            if frame.verdict == DECODED:
                quality = frame.quality
                measured = quality.attempts > 0
                heard.append(Message(frame.sample / SAMPLE_RATE, channel, bytes(frame.msg[:frame.msg_len]),
                                     quality.snr_db if measured else math.nan,
                                     quality.drift_ppm if measured else math.nan))

        lib.forget_errors()
        default = lib.soundcomm_default_cfg()
        self.context = lib.soundcomm_init(default, default)
        if not self.context:
            raise lib.error("cannot set up the receiver")
        callback = records.FRAME_CALLBACK(on_frame)
        # The finalizer holds the callback as long as the context may call it.
        self.release = weakref.finalize(self, lambda context, _: lib.soundcomm_release(context), self.context, callback)
        lib.soundcomm_set_frame_callback(self.context, callback, None)
        if not lib.soundcomm_init_receive(self.context, lib.soundcomm_default_rx_sync_paras(),
                                          lib.soundcomm_default_audio_format()):
            raise lib.error("cannot set up the receiver")
        if second_look and not lib.soundcomm_config_second_look(self.context, SECOND_LOOK_MEASURE):
            raise lib.error("cannot switch the second look on")

    def push(self, samples: NDArray[np.int16]) -> None:
        lib.forget_errors()
        counts = records.ResultSet()  # no buffers: the callback takes the messages
        if lib.soundcomm_receive(self.context, samples.ctypes.data, samples.size, ctypes.byref(counts)) != 0:
            raise lib.error("cannot receive the samples")


class Receiver:
    """Listens to blocks of samples and returns the messages in them; a frame may straddle any number of blocks.

        with kosc.Receiver(channels=2) as receiver:
            for block in blocks:                    # int16 arrays of shape (n, 2)
                for message in receiver.push(block):
                    ...

    With `second_look`, frames that fail their CRCs are decoded again by a receiver that hears about 4 dB deeper and
    follows senders who walk, and every message comes with its SNR and drift; this costs some milliseconds a frame.
    """

    def __init__(self, channels: int = 2, second_look: bool = True) -> None:
        number = arrays.count(channels, "channels", 1, MOST_CHANNELS)
        self._channels: Optional[list[_Channel]] = [_Channel(i, bool(second_look)) for i in range(number)]
        self._number = number
        self._lock = threading.Lock()  # other threads may run while the library calls back

    @property
    def channels(self) -> int:
        """Channels that it listens to."""
        return self._number

    @property
    def closed(self) -> bool:
        """Whether close() was called."""
        return self._channels is None

    def push(self, samples: Samples) -> list[Message]:
        """The messages that end in these samples, in the order of time.

        `samples` are the next ones at SAMPLE_RATE Hz: an int16 array of shape (n, channels), or (n,) for one channel;
        or bytes, interleaved and little-endian.
        """
        block = self._as_block(samples)
        with self._lock:
            channels = self._open_channels()
            for start in range(0, len(block), BLOCK):
                for column, channel in enumerate(channels):
                    channel.push(np.ascontiguousarray(block[start:start + BLOCK, column], dtype=np.int16))
            heard = [message for channel in channels for message in channel.heard]
            for channel in channels:
                channel.heard.clear()
        return sorted(heard, key=lambda message: (message.time, message.channel))

    def finish(self) -> list[Message]:
        """The messages that still wait for more sound, as if silence followed the last samples; then closes.

        Brings out a last frame that the recording cuts a little short, or that a fast sender ends early.
        """
        heard = self.push(np.zeros((2 * FRAME_LENGTH, self._number), np.int16))
        self.close()
        return heard

    def close(self) -> None:
        """Frees the receiver; may be called again."""
        with self._lock:
            channels, self._channels = self._channels, None
        for channel in channels or []:
            channel.release()

    def __enter__(self) -> Receiver:
        self._open_channels()
        return self

    def __exit__(self, *exception: Any) -> None:
        self.close()

    def _open_channels(self) -> list[_Channel]:
        if self._channels is None:
            raise ValueError("the receiver is closed")
        return self._channels

    def _as_block(self, samples: Samples) -> NDArray[np.int16]:
        if isinstance(samples, (bytes, bytearray, memoryview)):
            data = arrays.octets(samples, "samples")
            size = 2 * self._number
            if len(data) % size != 0:
                raise ValueError(f"samples have {len(data)} bytes, which is no multiple of {size}: "
                                 f"2 bytes for each of {self._number} channels")
            return np.frombuffer(data, LITTLE_ENDIAN).reshape(-1, self._number)
        block = np.asarray(samples)
        if block.dtype.kind != "i" or block.dtype.itemsize != 2:
            raise TypeError(f"samples must be int16, not {block.dtype}: scale them to +-32767 and use astype('int16')")
        if block.ndim == 1 and self._number == 1:
            block = block[:, np.newaxis]
        if block.ndim != 2 or block.shape[1] != self._number:
            raise ValueError(f"samples must have the shape (n, {self._number}), not {block.shape}")
        return block


def listen(source: Source, channels: Optional[int] = None, second_look: bool = True) -> Iterator[Message]:
    """Yields the messages in `source` as they are heard, those at its very end included.

    `source` is the path of a WAV file, an open wave.Wave_read, a binary file or stream of interleaved little-endian
    16-bit samples without a header, or any iterable of blocks for Receiver.push(). `channels` defaults to those of the
    WAV file, else 2. Sound must have 16 bits and SAMPLE_RATE Hz.
    """
    with contextlib.ExitStack() as stack:
        if isinstance(source, (str, os.PathLike)):
            source = stack.enter_context(_opened(source))
        if isinstance(source, wave.Wave_read):
            channels = _checked_channels(source, channels)
        receiver = stack.enter_context(Receiver(2 if channels is None else channels, second_look))
        for block in _blocks(source, receiver.channels):
            yield from receiver.push(block)
        yield from receiver.finish()


def _opened(path: Union[str, "os.PathLike[str]"]) -> wave.Wave_read:
    try:
        return wave.open(os.fspath(path), "rb")
    except (wave.Error, EOFError) as error:
        raise ValueError(f"{os.fspath(path)} is no WAV file of 16-bit samples: {error or 'it ends early'}") from None


def _checked_channels(sound: wave.Wave_read, channels: Optional[int]) -> int:
    rate, width, number = sound.getframerate(), sound.getsampwidth(), sound.getnchannels()
    if rate != SAMPLE_RATE:
        raise ValueError(f"the sound has {rate} Hz; it must have {SAMPLE_RATE} Hz")
    if width != 2:
        raise ValueError(f"the sound has {8 * width} bits a sample; it must have 16")
    if channels not in (None, number):
        raise ValueError(f"the sound has {number} channels, not {channels}")
    return number


def _blocks(source: Any, channels: int) -> Iterable[Any]:
    """The source cut into blocks."""
    if isinstance(source, wave.Wave_read):
        return _whole_samples(lambda: bytes(source.readframes(BLOCK)), 2 * channels)
    if hasattr(source, "read"):
        return _whole_samples(lambda: bytes(source.read(2 * channels * BLOCK)), 2 * channels)
    if isinstance(source, (bytes, bytearray, memoryview, np.ndarray)):
        return [source]
    blocks: Iterable[Any] = source
    return blocks


def _whole_samples(read: Callable[[], bytes], size: int) -> Iterator[bytes]:
    """Samples of all channels, `size` bytes each, however few come at a time; a piece of one at the end is lost."""
    rest = b""
    while data := read():
        rest += data
        whole = len(rest) // size * size
        yield rest[:whole]
        rest = rest[whole:]
