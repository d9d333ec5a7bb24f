"""Messages in files, streams and iterables of blocks."""

from __future__ import annotations

import contextlib
import importlib
import io
import os
import wave
from pathlib import Path
from typing import Any, BinaryIO, Callable, Iterable, Iterator, NamedTuple, Optional, Union

import numpy as np
from numpy.typing import NDArray

from . import _arrays as arrays
from ._bands import ALL, DEFAULT_BAND, Band, BandChoice, find_bands
from .modem import SAMPLE_RATE
from .receiver import LITTLE_ENDIAN, Message, Receiver, Samples
from .resample import PASSED, resampled

BLOCK = 4096  # samples a channel that are read at a time
SAMPLE_BYTES = 2
DEFAULT_CHANNELS = 2

Source = Union[str, "os.PathLike[str]", wave.Wave_read, BinaryIO, Iterable[Samples]]


class _Sound(NamedTuple):
    """A source, opened."""

    name: str
    channels: int
    rate: int
    blocks: Iterable[Any]


def listen(source: Source, channels: Optional[int] = None, second_look: bool = True,
           band: Union[BandChoice, Iterable[BandChoice]] = DEFAULT_BAND,
           combine: Optional[str] = None, crowd: bool = False) -> Iterator[Message]:
    """Yields the messages in `source` as they are heard, those at its very ends included.

    `source` is the path of a sound file, an open wave.Wave_read, a binary file or stream of interleaved little-endian
    16-bit samples without a header, or any iterable of blocks for Receiver.push(). `channels` defaults to those of the
    file, else 2. `band`, `combine` and `crowd` are as for Receiver.

    WAV files of 16 bits and SAMPLE_RATE Hz need no other package. The package soundfile reads those of other widths,
    and FLAC, OGG, AIFF and so on; the package scipy converts rates. Slow ones hold low bands only: of "all", those are
    listened to, and a band that is asked for by itself is refused.
    """
    with contextlib.ExitStack() as stack:
        sound = _opened(source, channels, stack)
        if channels not in (None, sound.channels):
            raise ValueError(f"{sound.name} has {sound.channels} channels, not {channels}")
        receiver = stack.enter_context(Receiver(sound.channels, second_look, True, _held(sound, band), combine, crowd))
        for block in sound.blocks if sound.rate == SAMPLE_RATE else _converted(sound):
            yield from receiver.push(block)
        yield from receiver.finish()


def _held(sound: _Sound, choice: Any) -> Iterable[Band]:
    """The bands of a choice, if the sound's rate holds them; of all, those that it does hold."""
    bands = find_bands(choice)
    ends = PASSED * sound.rate if sound.rate < SAMPLE_RATE else SAMPLE_RATE / 2
    held = [band for band in bands if band.high_hz <= ends]
    missing = [band for band in bands if band.high_hz > ends]
    if not held or (missing and not (isinstance(choice, str) and choice == ALL)):
        first = missing[0]
        raise ValueError(f"{sound.name} has {sound.rate} Hz, which holds sound up to {ends:.0f} Hz; the band {first} "
                         f"reaches from {first.low_hz:.0f} to {first.high_hz:.0f} Hz")
    return held


def _opened(source: Any, channels: Optional[int], stack: contextlib.ExitStack) -> _Sound:
    if isinstance(source, (str, os.PathLike)):
        return _opened_file(Path(source), stack)
    if isinstance(source, wave.Wave_read):
        return _opened_wave(source, "the sound")
    number = DEFAULT_CHANNELS if channels is None else arrays.count(channels, "channels", 1)
    if hasattr(source, "read"):
        name = str(getattr(source, "name", "the stream"))
        return _Sound(name, number, SAMPLE_RATE, _stream_blocks(source, name, number))
    whole = isinstance(source, (bytes, bytearray, memoryview, np.ndarray))
    return _Sound("the sound", number, SAMPLE_RATE, [source] if whole else source)


def _opened_file(path: Path, stack: contextlib.ExitStack) -> _Sound:
    if path.is_file() and path.stat().st_size == 0:
        raise ValueError(f"{path} is empty")
    try:
        sound = stack.enter_context(contextlib.closing(wave.open(str(path), "rb")))
        if sound.getsampwidth() == SAMPLE_BYTES:
            return _opened_wave(sound, str(path))
        reason = f"it has {8 * sound.getsampwidth()} bits"
    except (wave.Error, EOFError) as error:
        reason = str(error) or "it ends early"
    return _opened_by_soundfile(path, stack, f"{path} is no WAV file of 16-bit samples ({reason})")


def _opened_wave(sound: wave.Wave_read, name: str) -> _Sound:
    if sound.getsampwidth() != SAMPLE_BYTES:
        raise ValueError(f"{name} has {8 * sound.getsampwidth()} bits a sample; it must have 16, or come as a path")
    _refuse_nothing(name, sound.getnframes())
    number = sound.getnchannels()
    blocks = _whole_samples(lambda: sound.readframes(BLOCK), SAMPLE_BYTES * number)
    return _Sound(name, number, sound.getframerate(), blocks)


def _opened_by_soundfile(path: Path, stack: contextlib.ExitStack, why: str) -> _Sound:
    soundfile = _package("soundfile", why)
    try:
        sound = stack.enter_context(soundfile.SoundFile(str(path)))
    except soundfile.LibsndfileError as error:
        raise ValueError(f"{path} is no sound file that soundfile reads: {error.error_string}") from None
    _refuse_nothing(str(path), sound.frames)
    blocks = sound.blocks(BLOCK, dtype="float32", always_2d=True)
    return _Sound(str(path), sound.channels, sound.samplerate, blocks)


def _refuse_nothing(name: str, samples: int) -> None:
    if samples == 0:
        raise ValueError(f"{name} has no samples")


def _converted(sound: _Sound) -> Iterator[NDArray[np.float64]]:
    signal = _package("scipy.signal", f"{sound.name} has {sound.rate} Hz instead of {SAMPLE_RATE}")
    return resampled(signal, (_levels(block, sound.channels) for block in sound.blocks), sound.rate, SAMPLE_RATE)


def _levels(block: Any, channels: int) -> NDArray[np.float64]:
    if isinstance(block, bytes):
        block = np.frombuffer(block, LITTLE_ENDIAN).reshape(-1, channels) / arrays.FULL_SCALE
    return np.asarray(block, dtype=np.float64)


def _package(name: str, why: str) -> Any:
    try:
        return importlib.import_module(name)
    except ImportError:
        raise ValueError(f"{why}: this takes the package {name.partition('.')[0]}, which is not installed") from None


def _stream_blocks(stream: Any, name: str, channels: int) -> Iterator[bytes]:
    """Blocks of a stream that should hold samples and nothing else."""
    size = SAMPLE_BYTES * channels

    def read() -> bytes:
        # Most sound is no text, so that reading it as such would fail first.
        data = "" if isinstance(stream, io.TextIOBase) else stream.read(size * BLOCK)
        if isinstance(data, str):
            raise TypeError(f"{name} is open in text mode; open it with mode 'rb'")
        return bytes(data)

    blocks = _whole_samples(read, size)
    for first in blocks:
        if first.startswith(b"RIFF"):
            raise ValueError(f"{name} is a WAV file: give its path, or what wave.open() makes of it")
        yield first
        yield from blocks


def _whole_samples(read: Callable[[], bytes], size: int) -> Iterator[bytes]:
    """Samples of all channels, `size` bytes each, however few come at a time; a piece of one at the end is lost."""
    rest = b""
    while data := read():
        rest += data
        whole = len(rest) // size * size
        yield rest[:whole]
        rest = rest[whole:]
