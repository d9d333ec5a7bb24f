"""Bits, CRC and the channel codes."""

from __future__ import annotations

import weakref
from typing import Any, Callable, Sequence

import numpy as np
from numpy.typing import ArrayLike

from .. import _arrays as arrays
from .._arrays import Bits
from .._library import lib

HOLE = arrays.HOLE
"""A code bit that carries no information: 0xFF."""
MOST_CONSTRAINT = 16
MOST_POLYNOMIALS = 8


def crc16(data: bytes) -> int:
    """CRC-16/MODBUS of `data`; a frame carries it high byte first."""
    octets = arrays.octets(data, "data")
    out = np.empty(2, np.uint8)
    arrays.filled(lib.crc16, "cannot compute the CRC", out, out.ctypes.data, octets, len(octets))
    return int(out[0]) | int(out[1]) << 8


def byte2bin(data: bytes) -> Bits:
    """The bits of `data`, the most significant of each byte first."""
    octets = arrays.octets(data, "data")
    out = np.empty(8 * len(octets), np.uint8)
    return arrays.filled(lib.byte2bin, "cannot expand no bytes", out, out.ctypes.data, octets, len(octets))


def bin2byte(bits: ArrayLike) -> bytes:
    """The bytes of `bits`, whose number is a multiple of 8: undoes byte2bin()."""
    array = arrays.bits(bits)
    if array.size % 8 != 0:
        raise ValueError(f"{array.size} bits are no whole bytes")
    out = np.empty(array.size // 8, np.uint8)
    arrays.filled(lib.bin2byte, "cannot pack no bits", out, out.ctypes.data, array.ctypes.data, array.size)
    return out.tobytes()


def encode82(bits: ArrayLike) -> Bits:
    """The (8, 2) block code: eight code bits for every two."""
    return arrays.run(lib.encode82, "cannot encode: the bits must be pairs, at least one", arrays.bits(bits))


def decode82(coded: ArrayLike) -> Bits:
    """Two bits for every eight of the (8, 2) block code; up to two wrong ones of the eight are corrected."""
    return arrays.run(lib.decode82, "cannot decode: the bits must be groups of 8, at least one", arrays.bits(coded))


def interleaver_encode(bits: ArrayLike, stride: int = 16) -> Bits:
    """Bits that lie `stride` apart become neighbours; the stride divides their number."""
    array = arrays.bits(bits, holes=True)
    return arrays.run(lib.interleaver_encode, "cannot interleave", array, _divisor(array, stride))


def interleaver_decode(bits: ArrayLike, stride: int = 16) -> Bits:
    """Undoes interleaver_encode()."""
    array = arrays.bits(bits, holes=True)
    return arrays.run(lib.interleaver_decode, "cannot deinterleave", array, _divisor(array, stride))


def _divisor(array: Bits, stride: int) -> int:
    number = arrays.count(stride, "stride", 1)
    if array.size == 0 or array.size % number != 0:
        raise ValueError(f"a stride of {number} does not divide {array.size} bits")
    return number


class ConvCode:
    """A convolutional code of rate 1/n, with its Viterbi decoders for hard and for soft decisions.

    The defaults are the modem's code. Bit 0 of a polynomial taps the current input bit.
    """

    def __init__(self, constraint: int = 7, polynomials: Sequence[int] = (0o137, 0o153, 0o121)) -> None:
        self.constraint = arrays.count(constraint, "constraint", 2, MOST_CONSTRAINT)
        taps = [arrays.count(tap, "each polynomial", 1, (1 << self.constraint) - 1) for tap in polynomials]
        self.rate = arrays.count(len(taps), "the number of polynomials", 1, MOST_POLYNOMIALS)
        """code bits an input bit"""
        lib.forget_errors()
        self._code = lib.conv_code_init(self.constraint, np.array(taps, np.uint32).ctypes.data, self.rate)
        if not self._code:
            raise lib.error("cannot build the code")
        weakref.finalize(self, lib.conv_code_release, self._code)

    def encode(self, bits: ArrayLike) -> Bits:
        """(len(bits) + constraint - 1) * rate code bits: a tail of zeros brings the encoder back to its first state."""
        array = arrays.bits(bits)
        lib.forget_errors()
        return self._result(lib.conv_code_encode(self._code, array.ctypes.data, array.size), "cannot encode no bits")

    def decode(self, coded: ArrayLike) -> Bits:
        """The likeliest bits for received code bits (0, 1 or HOLE), without the tail."""
        array = arrays.bits(coded, "code bits", holes=True)
        steps = self._steps(array.size)
        lib.forget_errors()
        result = lib.conv_code_decode_hard(self._code, array.ctypes.data, array.size, True)
        return self._result(result, "cannot decode")[:steps - self._tail]

    def decode_soft(self, soft: ArrayLike) -> Bits:
        """Like decode(), for values that are the more positive the surer a 1 and the more negative the surer a 0."""
        array = arrays.reals(soft, "soft values")
        steps = self._steps(array.size)
        decoder = lib.soft_viterbi_init(self._code, steps)
        if not decoder:
            raise MemoryError("no memory for the decoder")
        try:
            out = np.empty(steps, np.uint8)
            arrays.filled(lib.soft_viterbi_decode, "cannot decode", out,
                          decoder, array.ctypes.data, steps, out.ctypes.data)
        finally:
            lib.soft_viterbi_free(decoder)
        return out[:steps - self._tail]

    @property
    def _tail(self) -> int:
        return self.constraint - 1

    def _steps(self, size: int) -> int:
        if size % self.rate != 0 or size // self.rate <= self._tail:
            raise ValueError(f"{size} values are no block of this code: they come in groups of {self.rate}, "
                             f"more than {self._tail} of them")
        return size // self.rate

    @staticmethod
    def _result(result: Any, what: str) -> Bits:
        if not result.data:
            raise lib.error(what)
        try:
            return np.ctypeslib.as_array(result.data, (result.len,)).copy()
        finally:
            lib.conv_code_free_data(result.data, result.len)


class Puncture:
    """Removes code bits at even distances, so that `total` become `kept`; the defaults are the modem's."""

    def __init__(self, total: int = 786, kept: int = 768) -> None:
        self.total, self.kept = arrays.count(total, "total", 1), arrays.count(kept, "kept", 1)
        self._template = lib.get_punch_template(self.total, self.kept)
        if not self._template:
            raise ValueError(f"{self.total} bits cannot be cut to {self.kept}: some must go, and at most every second")
        weakref.finalize(self, lib.free_punch_template, self._template)

    def punch(self, bits: ArrayLike) -> Bits:
        """The kept ones of `total` bits."""
        return self._run(lib.punch_code, bits, self.total, self.kept)

    def depunch(self, bits: ArrayLike) -> Bits:
        """Undoes punch(), with HOLE in place of what was removed."""
        return self._run(lib.depunch_code, bits, self.kept, self.total)

    def _run(self, step: Callable[..., bool], bits: ArrayLike, size: int, out_size: int) -> Bits:
        array = arrays.bits(bits, holes=True)
        if array.size != size:
            raise ValueError(f"there must be {size} bits, not {array.size}")
        out = np.empty(out_size, np.uint8)
        return arrays.filled(step, "cannot puncture", out, self._template, array.ctypes.data, size, out.ctypes.data,
                             out_size)
