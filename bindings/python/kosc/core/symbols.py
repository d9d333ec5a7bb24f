"""Subcarriers: QPSK, OFDM, the means against high peaks, and the pilots' sequence."""

from __future__ import annotations

import weakref
from typing import Callable

import numpy as np
from numpy.typing import ArrayLike

from .. import _arrays as arrays
from .._arrays import Bits, Complexes, Reals
from .._library import lib


def qpsk_mod(bits: ArrayLike) -> Complexes:
    """One symbol for every two bits: the signs, 1 positive, of the real and of the imaginary part."""
    array = arrays.bits(bits)
    if array.size % 2 != 0:
        raise ValueError(f"{array.size} bits are no whole symbols of 2")
    return arrays.run(lib.qpsk_mod, "cannot modulate", array)


def qpsk_demod(symbols: ArrayLike) -> Bits:
    """Hard bits of symbols."""
    return arrays.run(lib.qpsk_demod, "cannot demodulate", arrays.complexes(symbols, "symbols"))


def ofdm_map_subcarries(values: ArrayLike, fft_size: int = 1024, start: int = 384) -> Complexes:
    """A spectrum with `values` from bin `start` on, and their conjugates mirrored, so that its signal is real."""
    array = arrays.complexes(values, "values")
    size, first = arrays.count(fft_size, "fft_size", 2), arrays.count(start, "start", 0)
    if size % 2 != 0 or first + array.size >= size // 2:
        raise ValueError(f"{array.size} subcarriers from bin {first} on do not fit the lower half of {size} bins")
    return arrays.run(lib.ofdm_map_subcarries, "cannot map the subcarriers", array, size, first)


def ofdm_mod_halfcomplex(spectrum: ArrayLike) -> Reals:
    """The real signal of a mirrored spectrum; its length is a power of two."""
    return arrays.run(lib.ofdm_mod_halfcomplex, "cannot modulate", _power_of_two(spectrum, "spectrum"))


def ofdm_demod_real(signal: ArrayLike) -> Complexes:
    """The unscaled spectrum of a real signal, whose length is a power of two; slice it to get at the subcarriers."""
    array = arrays.reals(signal, "signal")
    _power_of_two(array, "signal")
    return arrays.run(lib.ofdm_demod_real, "cannot demodulate", array)


def fft(values: ArrayLike) -> Complexes:
    """The unscaled FFT of a power of two complex values."""
    return _transform(lib.kom_fft_complex_radix2_forward, values, stride=True)


def ifft(values: ArrayLike) -> Complexes:
    """Undoes fft()."""
    return _transform(lib.kom_fft_complex_radix2_inverse, values, stride=True)


def dft_spread_mod(values: ArrayLike) -> Complexes:
    """The FFT of a power of two complex values, scaled to keep their power: one way to lower peaks."""
    return _transform(lib.dft_spread_mod, values, stride=False)


def dft_spread_demod(values: ArrayLike) -> Complexes:
    """Undoes dft_spread_mod()."""
    return _transform(lib.dft_spread_demod, values, stride=False)


class PhasePattern:
    """Rotates subcarriers by a pattern of angles in radians, so that they do not add up to a peak."""

    def __init__(self, angles: ArrayLike) -> None:
        array = arrays.reals(angles, "angles")
        if array.size == 0:
            raise ValueError("a pattern needs at least one angle")
        self._size = array.size
        self._pattern = lib.calc_phase_pattern(array.ctypes.data, array.size)
        if not self._pattern:
            raise MemoryError("no memory for the pattern")
        weakref.finalize(self, lib.free_phase_pattern, self._pattern)

    def shift(self, values: ArrayLike) -> Complexes:
        """`values`, a multiple of the pattern's length of them, each rotated by its angle."""
        return self._run(lib.phase_shift, values)

    def restore(self, values: ArrayLike) -> Complexes:
        """Undoes shift()."""
        return self._run(lib.phase_restore, values)

    def _run(self, step: Callable[..., bool], values: ArrayLike) -> Complexes:
        out = arrays.complexes(values, "values").copy()
        if out.size == 0 or out.size % self._size != 0:
            raise ValueError(f"{out.size} values are no multiple of the pattern's {self._size}")
        return arrays.filled(step, "cannot rotate", out, out.ctypes.data, out.size, self._pattern)


def zadoff_chu(root: int, length: int, q: int = 0) -> Complexes:
    """The constant-amplitude sequence of the pilots, whose roots are 1 and 3 and whose length is 64."""
    number = arrays.count(length, "length", 1)
    out = np.empty(number, np.complex128)
    lib.zc(arrays.count(root, "root", -arrays.MOST), arrays.count(q, "q", 0), number, out.ctypes.data)
    return out


def _power_of_two(values: ArrayLike, name: str) -> Complexes:
    array = arrays.complexes(values, name)
    if array.size == 0 or array.size & (array.size - 1) != 0:
        raise ValueError(f"{name} must have a power of two values, not {array.size}")
    return array


def _transform(step: Callable[..., bool], values: ArrayLike, stride: bool) -> Complexes:
    out = _power_of_two(values, "values").copy()
    return arrays.filled(step, "cannot transform", out, out.ctypes.data, *([1] if stride else []), out.size)
