"""Sound into messages."""

from __future__ import annotations

import ctypes
import math
import re
import threading
import weakref
from typing import Any, Iterable, NamedTuple, Optional, Union

import numpy as np
from numpy.typing import NDArray

from . import _arrays as arrays
from . import _records as records
from ._bands import DEFAULT_BAND, Band, BandChoice, configuration, find_bands
from ._library import lib
from .modem import SAMPLE_RATE

MOST_CHANNELS = 64
BLOCK = 4096  # samples a channel that are decoded at a time
LITTLE_ENDIAN = "<i2"
DECODED = 1
SECOND_LOOK_MEASURE = 2
COMBINE = {None: 0, "each": 1, "together": 2}
EACH, TOGETHER = 1, 2
CROWD_CANCEL = 2
MICROPHONES = 2  # the first channels, where they are combined together
MEASURED = ("snr_db", "drift_ppm", "coherence", "evm")
CONTROL = re.compile("[\x00-\x1f\x7f-\x9f]")

Samples = Union["NDArray[np.int16]", "NDArray[np.floating[Any]]", bytes, bytearray, memoryview]


class Combined(NamedTuple):
    """What a message was put together from."""

    frames: int
    """sent frames that were summed; 1: one frame, found by the search for weak frames"""
    hearings: int
    """the same, each counted as often as microphones heard it"""
    microphones: int
    """that heard some of them: 1 or 2"""
    snr_db: float
    """of all of it together: what a single frame would need to have for as much to be heard of it"""
    newest_snr_db: float
    """of the newest frame alone, by the microphone that heard it better"""
    drift_ppm: float
    """of the newest frame"""
    seconds: float
    """from the first frame's start to the newest one's"""


class Message(NamedTuple):
    """A message that was heard, with figures that tell how well.

    `snr_db`, `drift_ppm`, `coherence` and `evm` are what the second look measured; without one they are NaN. Of a message
    that was put together, `time` and `drift_ppm` are of the newest frame, `snr_db` of all of it; the others are NaN, and
    `correlation` is 0.
    """

    time: float
    """seconds from the start of reception to the frame's first sample; below 0 when a recording lacks that"""
    channel: int
    """channel that heard it, counted from 0 as in the columns of the samples"""
    data: bytes
    """the message's 28 bytes"""
    snr_db: float
    """power of a subcarrier over what channel and message do not explain"""
    drift_ppm: float
    """by how much the sender's clock, or its motion, raised the frequencies"""
    correlation: float = math.nan
    """height of the synchronisation peak, up to 1"""
    second_look_needed: bool = False
    """it did not decode at first, and got the second look"""
    failed_crcs: int = 0
    """bit i: CRC i did not match at first"""
    coherence: float = math.nan
    """share of the pilots' energy that adds up, 0 to 1"""
    evm: float = math.nan
    """error vector magnitude of the data symbols"""
    band: Band = DEFAULT_BAND
    """the band that it came on"""
    combined: Optional[Combined] = None
    """what it was put together from; None when it was not"""

    @property
    def text(self) -> Optional[str]:
        """The message without the zero bytes at its end, if that is UTF-8 without control characters; None when it is
        not, or is empty."""
        try:
            text = self.data.rstrip(b"\0").decode("utf-8")
        except UnicodeDecodeError:
            return None
        return text if text and not CONTROL.search(text) else None


def _combined(report: Any) -> Optional[Combined]:
    if not report:
        return None
    record = report.contents
    return Combined(record.frames, record.hearings, bin(record.channels).count("1"), record.snr_db,
                    record.newest_snr_db, record.drift_ppm, record.seconds)


class _Listener:
    """One channel's receiver of one band, and the messages that its last blocks yielded."""

    def __init__(self, channel: int, band: Band, second_look: bool, crowd: bool) -> None:
        self.channel = channel
        self.heard: list[Message] = []
        self._lead = lead = [0]  # samples of silence before the first pushed
        heard = self.heard  # not self: the library's callback must not keep the receiver alive

        def on_frame(report: Any, _: Any) -> None:
            frame = report.contents
            if frame.verdict == DECODED:
                quality, combined = frame.quality, _combined(frame.combined)
                measured = {name: getattr(quality, name) if quality.attempts > 0 else math.nan for name in MEASURED}
                if combined is not None:
                    measured.update(snr_db=combined.snr_db, drift_ppm=combined.drift_ppm)
                heard.append(Message(
                    (frame.sample - lead[0]) / SAMPLE_RATE, channel, bytes(frame.msg[:frame.msg_len]),
                    correlation=frame.correlation, second_look_needed=quality.needed, failed_crcs=frame.failed_crcs,
                    band=band, combined=combined, **measured))

        lib.forget_errors()
        cfg = configuration(band)
        self.context = lib.soundcomm_init(ctypes.byref(cfg), ctypes.byref(cfg))
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
        if crowd and not lib.soundcomm_config_crowd(self.context, CROWD_CANCEL):
            raise lib.error("cannot switch the crowd on")

    def combine(self, other: Optional[_Listener]) -> None:
        """Adds up what it hears; with another one, what both hear."""
        mode, second = (EACH, None) if other is None else (TOGETHER, other.context)
        if not lib.soundcomm_config_combining(self.context, second, mode):
            raise lib.error("cannot switch combining on")

    def count_from_here(self) -> None:
        """What was pushed so far was silence before the first samples."""
        self._lead[0] = self.silence_around

    @property
    def silence_around(self) -> int:
        """Samples of silence that belong on both sides of a recording."""
        samples: int = lib.soundcomm_get_silence_around(self.context)
        return samples

    def push(self, samples: NDArray[np.int16]) -> None:
        lib.forget_errors()
        counts = records.ResultSet()  # no buffers: the callback takes the messages
        if lib.soundcomm_receive(self.context, samples.ctypes.data, samples.size, ctypes.byref(counts)) != 0:
            raise lib.error("cannot receive the samples")


def _listeners(channels: int, bands: Iterable[Band], second_look: bool, recording: bool, combine: int,
               crowd: bool) -> list[_Listener]:
    """Receivers, in the order of channels, so that channels listen in turns."""
    bands = tuple(bands)
    made = [_Listener(i, band, second_look, crowd) for i in range(channels) for band in bands]
    for i, each in enumerate(made):
        paired = combine == TOGETHER and channels >= MICROPHONES and each.channel < MICROPHONES
        if combine and not paired:
            each.combine(None)
        elif paired and each.channel == 0:
            each.combine(made[i + len(bands)])
    if recording:
        _push_silence(made)
        for each in made:
            each.count_from_here()
    return made


def _push_silence(listeners: list[_Listener]) -> None:
    """Listens to the silence that belongs on both sides of a recording."""
    left = listeners[0].silence_around  # all bands have frames of one length
    while left > 0:
        silence = np.zeros(min(left, BLOCK), np.int16)
        for each in listeners:
            each.push(silence)
        left -= silence.size


class Receiver:
    """Listens to blocks of samples and returns the messages in them; a frame may straddle any number of blocks.

        with kosc.Receiver(channels=2) as receiver:
            for block in blocks:                    # arrays of shape (n, 2)
                for message in receiver.push(block):
                    ...

    With `second_look`, frames that fail their CRCs are decoded again by a receiver that hears about 4 dB deeper and
    follows senders who walk, and every message comes with what it measured, which takes longer than decoding it.
    With `recording`, the samples are a recording from its start on, and finish() ends it: a frame is found, too, whose
    first samples the recording lacks.
    `band` is as for find_band(), or several of these, "wide" for WIDE_BANDS, or "all" that have a name: then it listens
    on all at once, and Message.band tells on which one a message came.
    With `combine`, repeats of a message that are too weak alone are added up, over 12 seconds: "each" channel by itself,
    or "together" with channels 0 and 1 as two microphones of one receiver, where there are two channels, and others by
    themselves. Message.combined tells from what a message was put together. Messages that differ in little, as counters
    do, may be mixed (docs/trust.md).
    With `crowd`, frames of many senders that overlap are heard: each that was decoded is taken out of the sound, and what it
    covered is searched. It needs the second look.
    """

    def __init__(self, channels: int = 2, second_look: bool = True, recording: bool = False,
                 band: Union[BandChoice, Iterable[BandChoice]] = DEFAULT_BAND, combine: Optional[str] = None,
                 crowd: bool = False) -> None:
        if combine not in COMBINE:
            raise ValueError(f"combine is each, together or None, not {combine!r}")
        if crowd and not second_look:
            raise ValueError("crowd needs the second look")
        self._number = arrays.count(channels, "channels", 1, MOST_CHANNELS)
        self._bands = find_bands(band)
        self._listeners: Optional[list[_Listener]] = _listeners(
            self._number, self._bands, bool(second_look), bool(recording), COMBINE[combine], bool(crowd))
        self._lock = threading.Lock()  # other threads may run while the library calls back

    @property
    def channels(self) -> int:
        """Channels that it listens to."""
        return self._number

    @property
    def bands(self) -> tuple[Band, ...]:
        """Bands that it listens to, each once."""
        return self._bands

    @property
    def closed(self) -> bool:
        """Whether close() was called."""
        return self._listeners is None

    def push(self, samples: Samples) -> list[Message]:
        """The messages that end in these samples, in the order of time.

        `samples` are the next ones at SAMPLE_RATE Hz: an array of shape (n, channels), or (n,) for one channel, of int16
        or of floating-point numbers from -1 to 1, of which NaN counts as silence; or bytes of 16-bit samples,
        interleaved and little-endian.
        """
        block = self._as_block(samples)
        with self._lock:
            listeners = self._open_listeners()
            for start in range(0, len(block), BLOCK):
                columns = np.ascontiguousarray(block[start:start + BLOCK].T, dtype=np.int16)
                for each in listeners:
                    each.push(columns[each.channel])
            return self._heard(listeners)

    def finish(self) -> list[Message]:
        """The messages that still wait for more sound, as if silence followed the last samples; then closes.

        Brings out a last frame that the recording cuts a little short, or that a fast sender ends early.
        """
        with self._lock:
            listeners = self._open_listeners()
            _push_silence(listeners)
            heard = self._heard(listeners)
        self.close()
        return heard

    def close(self) -> None:
        """Frees the receiver; may be called again."""
        with self._lock:
            listeners, self._listeners = self._listeners, None
        for each in listeners or []:
            each.release()

    def __enter__(self) -> Receiver:
        self._open_listeners()
        return self

    def __exit__(self, *exception: Any) -> None:
        self.close()

    def _open_listeners(self) -> list[_Listener]:
        if self._listeners is None:
            raise ValueError("the receiver is closed")
        return self._listeners

    @staticmethod
    def _heard(listeners: list[_Listener]) -> list[Message]:
        heard = [message for each in listeners for message in each.heard]
        for each in listeners:
            each.heard.clear()
        return sorted(heard, key=lambda message: (message.time, message.channel))

    def _as_block(self, samples: Samples) -> NDArray[np.int16]:
        if isinstance(samples, (bytes, bytearray, memoryview)):
            data = arrays.octets(samples, "samples")
            size = 2 * self._number
            if len(data) % size != 0:
                raise ValueError(f"samples have {len(data)} bytes, which is no multiple of {size}: "
                                 f"2 bytes for each of {self._number} channels")
            return np.frombuffer(data, LITTLE_ENDIAN).reshape(-1, self._number)
        block = arrays.sound(samples)
        if block.ndim == 1 and self._number == 1:
            block = block[:, np.newaxis]
        if block.ndim != 2 or block.shape[1] != self._number:
            raise ValueError(f"samples must have the shape (n, {self._number}), not {block.shape}")
        return block
