"""Samples: the band-pass filter, windows, and the way to 16-bit sound."""

from __future__ import annotations

import weakref

import numpy as np
from numpy.typing import ArrayLike, NDArray

from .. import _arrays as arrays
from .. import _records as records
from .._arrays import Reals
from .._library import lib
from ..modem import SAMPLE_RATE

MOST_ORDER = 12
UNIT_GAIN = 1


class Bandpass:
    """A Butterworth band-pass filter between two frequencies in hertz; the defaults are the receiver's.

    It keeps its state from call to call, so that a stream can be filtered block by block.
    """

    def __init__(self, low: float = 17859.375, high: float = 21093.75, order: int = 5,
                 sample_rate: float = SAMPLE_RATE) -> None:
        if not 0 < low < high < sample_rate / 2:
            raise ValueError(f"the band must lie above 0 and below half the sample rate, and low below high; "
                             f"not {low} to {high} Hz at {sample_rate} Hz")
        self.order = arrays.count(order, "order", 1, MOST_ORDER)
        self._filter = lib.create_butterworth_bandpass2(self.order, UNIT_GAIN, low, high, sample_rate)
        if not self._filter:
            raise MemoryError("no memory for the filter")
        weakref.finalize(self, lib.free_butterworth_bandpass, self._filter)

    def __call__(self, samples: ArrayLike) -> Reals:
        """The filtered samples."""
        step, state = lib.butterworth_bandpass_filter, self._filter
        return np.array([step(state, sample) for sample in arrays.reals(samples, "samples")], np.float64)

    def reset(self) -> None:
        """Forgets the samples so far."""
        lib.butterworth_bandpass_reset_buffer(self._filter)

    @property
    def coefficients(self) -> tuple[Reals, Reals]:
        """Numerator and denominator, b and a, as scipy.signal has them."""
        record = self._filter.contents
        return (np.ctypeslib.as_array(record.b, (record.nb,)).copy(),
                np.ctypeslib.as_array(record.a, (record.na,)).copy())


def blackman(length: int) -> Reals:
    """The symmetric Blackman window."""
    out = np.empty(arrays.count(length, "length", 0), np.float64)
    lib.blackman(out.size, out.ctypes.data)
    return out


def fade(samples: ArrayLike, length: int = 80) -> Reals:
    """`samples` faded in and out over `length` samples, so that a loudspeaker does not click."""
    out = arrays.reals(samples, "samples").copy()
    number = arrays.count(length, "length", 0, out.size)
    lib.do_fade_in_out(records.FadeCfg(1, number), out.ctypes.data, out.size)
    return out


def make_audio(samples: ArrayLike, amplitude: float = 0.8, normalize: bool = True) -> NDArray[np.int16]:
    """16-bit sound: `samples` scaled to full scale (with `normalize`), times `amplitude`, clipped and truncated."""
    array = arrays.reals(samples, "samples")
    out = np.empty(array.size, np.int16)
    gain = records.AudioGain(1 if normalize else 0, amplitude)
    return arrays.filled(lib.soundcomm_make_audio, "cannot make sound", out, lib.soundcomm_default_audio_format(), gain,
                         array.ctypes.data, array.size, out.ctypes.data)
