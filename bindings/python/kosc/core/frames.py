"""Whole frames: their layout, their encoding and decoding, and the search for them in sound."""

from __future__ import annotations

import ctypes
import weakref
from typing import Any, Iterator, NamedTuple, Optional

import numpy as np
from numpy.typing import ArrayLike

from .. import _arrays as arrays
from .. import _records as records
from .._bands import DEFAULT_BAND, BandChoice, configuration, find_band
from .._arrays import Complexes, Reals
from .._library import lib
from ..modem import SAMPLE_RATE, padded
from .signals import Bandpass
from .symbols import PhasePattern

TRANSMIT, RECEIVE = 0, 1
DECODED, NOT_DECODED = 1, 2
FAILED = 0xFFFFFFFF
SECOND_LOOK_ON = 1
MOST_SAMPLES = 2**26
MARGIN = 3  # subcarriers on both sides of a band that the receiver's filter passes, too


class FrameQuality(NamedTuple):
    """What a second look measured; the fields are those of frame_quality_t in kosc/second_look.h."""

    decoded: bool
    attempts: int
    coherence: float
    drift_ppm: float
    drift_change_ppm: float
    snr_db: float
    evm: float


class Modem:
    """The modem with its built-in configuration, frame by frame, in `band`, which is as for kosc.find_band().

    `symbol_len`, `cp_len` (cyclic prefix), `frame_length` and `fade_len` count samples; the `sc_num` subcarriers lie
    from FFT bin `sc_start` on. `pilots` has the indices of the frame's pilot symbols, the first of them the
    synchronisation pilot; the other ones of the frame's `symbols` carry data.
    """

    def __init__(self, band: BandChoice = DEFAULT_BAND) -> None:
        self.band = find_band(band)
        built = configuration(self.band)
        lib.forget_errors()
        self._context = lib.soundcomm_init(ctypes.byref(built), ctypes.byref(built))
        if not self._context:
            raise lib.error("cannot set up the modem")
        weakref.finalize(self, lib.soundcomm_release, self._context)
        if not lib.soundcomm_config_second_look(self._context, SECOND_LOOK_ON):
            raise lib.error("cannot switch the second look on")
        self._paras = lib.soundcomm_get_paras(self._context, RECEIVE)
        cfg, frame = self._paras.contents.cfg, self._paras.contents.frame
        self.symbol_len: int = cfg.ofdm.symbol_len
        self.cp_len: int = cfg.ofdm.cp_len
        self.sc_start: int = cfg.ofdm.sc_start_idx
        self.sc_num: int = cfg.ofdm.sc_num
        self.fade_len: int = cfg.fade.len
        self.frame_length: int = frame.frame_length
        self.symbols: int = frame.symbols
        self.pilots: list[int] = [i for i in range(frame.symbols) if lib.is_pilot_index(cfg.data_pilot_rate, i)]

    def pilot(self, symbol: int) -> Complexes:
        """The subcarrier values that pilot symbol `symbol` is sent with."""
        if symbol not in self.pilots:
            raise ValueError(f"symbol {symbol} is no pilot; those of {self.pilots} are")
        paras = self._paras.contents
        pilot = paras.sync_pilot if symbol == self.pilots[0] else paras.estimating_pilot
        return arrays.copied(pilot.sequence.contents)

    @property
    def phase_pattern(self) -> PhasePattern:
        """The rotation of the data symbols' subcarriers."""
        pattern = self._paras.contents.phase_pattern.contents
        factors = np.ctypeslib.as_array(pattern.shift_factors, (2 * pattern.shift_count,)).view(np.complex128)
        return PhasePattern(np.angle(factors))

    def encode(self, message: bytes) -> Reals:
        """The samples of one frame before they are scaled to 16 bits; make_audio() does that."""
        data = padded(message)
        out = np.empty(self.frame_length, np.float64)
        paras = lib.soundcomm_get_paras(self._context, TRANSMIT)
        lib.forget_errors()
        if lib.soundcomm_encode(paras, data, len(data), out.ctypes.data, out.size) != 0:
            raise lib.error("cannot encode the message")
        return out

    def spectra(self, frame: ArrayLike) -> Complexes:
        """The subcarriers of each symbol, a row each: what the receiver's FFT sees, before any equalisation."""
        samples = self._checked(frame)
        rows = []
        for symbol in range(self.symbols):
            # The window starts before the symbol's end by the fade, so that it holds no faded samples.
            start = symbol * (self.symbol_len + self.cp_len) + self.cp_len - self.fade_len
            window = samples[start:start + self.symbol_len]
            rows.append(arrays.run(lib.ofdm_demod_real, "cannot demodulate", window))
        return np.array(rows)[:, self.sc_start:self.sc_start + self.sc_num]

    def decode(self, frame: ArrayLike) -> Optional[bytes]:
        """The message of a frame's samples, at any scale; None when its CRCs do not match."""
        samples = self._checked(frame)
        out = np.empty(self._message_length, np.uint8)
        lib.forget_errors()
        verdict = lib.soundcomm_decode(self._context, samples.ctypes.data, samples.size, out.ctypes.data, None,
                                       out.size)
        if verdict == FAILED:
            raise lib.error("cannot decode the frame")
        return out.tobytes() if verdict == DECODED else None

    def second_look(self, frame: ArrayLike) -> tuple[Optional[bytes], FrameQuality]:
        """The message as the second look finds it, or None, and what it measured on the way."""
        samples = self._checked(frame)
        out = np.empty(self._message_length, np.uint8)
        quality = records.Quality()
        lib.forget_errors()
        verdict = lib.soundcomm_decode_second_look(self._context, samples.ctypes.data, samples.size, out.ctypes.data,
                                                   out.size, ctypes.byref(quality))
        if verdict == FAILED:
            raise lib.error("cannot look at the frame")
        measured = FrameQuality(verdict == DECODED, *(getattr(quality, name) for name in FrameQuality._fields[1:]))
        return (out.tobytes() if measured.decoded else None), measured

    @property
    def _message_length(self) -> int:
        return int(self._paras.contents.cfg.msg_byte_len)

    def _checked(self, frame: ArrayLike) -> Reals:
        samples = arrays.reals(frame, "frame")
        if samples.size < self.frame_length:
            raise ValueError(f"a frame has {self.frame_length} samples, not {samples.size}")
        return samples[:self.frame_length]


class SampleBuffer:
    """One channel's samples, filtered and correlated with the synchronisation pilot, and the search for frames in them.

    Value k of `correlation` stands for the pilot's reference ending at sample k; the receiver looks for peaks above
    `threshold`. `band` is as for Modem.
    """

    def __init__(self, samples: ArrayLike, band: BandChoice = DEFAULT_BAND) -> None:
        pcm = arrays.pcm(samples)
        self._size = arrays.count(pcm.size, "the number of samples", 1, MOST_SAMPLES)
        self._modem = Modem(band)  # owns the pilot
        margin = MARGIN * SAMPLE_RATE / self._modem.symbol_len
        self._bandpass = Bandpass(self._modem.band.low_hz - margin, self._modem.band.high_hz + margin)
        sync = lib.soundcomm_default_rx_sync_paras()
        self.threshold: float = sync.peak_threshold
        paras = self._modem._paras.contents
        lib.forget_errors()
        self._container: Any = lib.data_container_init(
            max(self._size, 2 * self._modem.frame_length), self._modem.frame_length, paras.frame.len_before_sync, sync,
            ctypes.cast(paras.sync_pilot.reference, ctypes.c_void_p), self._modem.symbol_len, self._bandpass._filter)
        if not self._container:
            raise lib.error("cannot set up the buffer")
        weakref.finalize(self, lib.data_container_free, self._container)
        if not lib.data_container_recv_block(self._container, pcm.ctypes.data, 1, self._size):
            raise lib.error("cannot correlate the samples")

    @property
    def filtered(self) -> Reals:
        """The samples behind the band-pass filter."""
        return self._history(self._container.contents.filtered_data)

    @property
    def correlation(self) -> Reals:
        """The normalised correlation with the filtered pilot, from 0 to 1."""
        return self._history(self._container.contents.corrcoef)

    def frame_starts(self) -> Iterator[int]:
        """Where frames start, as the receiver finds them: each is decoded to know where to search on."""
        samples = self._history(self._container.contents.data)
        iterator = lib.data_container_begin(self._container)
        while not lib.sync_iter_is_end(iterator):
            start = lib.sync_iter_get_global_offset(iterator)
            yield start
            message = self._modem.decode(samples[start:])
            lib.sync_iter_update_decode_state(iterator, NOT_DECODED if message is None else DECODED)
            lib.sync_iter_next(iterator)

    def _history(self, queue: Any) -> Reals:
        """The newest values of a queue, one for every sample; older ones stand for the silence before them."""
        return np.ctypeslib.as_array(lib.vector_view(queue, -self._size, self._size), (self._size,)).copy()
