"""Checks what callers hand in, and carries it over to the library as numpy memory of the right type."""

from __future__ import annotations

import ctypes
import operator
from typing import Any, Callable

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _records as records
from ._library import lib

MOST = 2**31 - 1  # the library counts in 32 bits
HOLE = 0xFF
FULL_SCALE = 2**15
MOST_OVERDRIVE = 100  # times full scale; beyond, samples were not scaled

Bits = NDArray[np.uint8]
Reals = NDArray[np.float64]
Complexes = NDArray[np.complex128]


def _array(values: ArrayLike, kinds: str, dtype: Any, name: str, wanted: str) -> NDArray[Any]:
    array = np.asarray(values)
    if array.size == 0 and not isinstance(values, np.ndarray):
        array = array.astype(dtype)  # an empty list has no type of its own
    if array.dtype.kind not in kinds:
        raise TypeError(f"{name} must be {wanted}, not {array.dtype}")
    if array.ndim != 1:
        raise ValueError(f"{name} must have one dimension, not {array.ndim}")
    if array.size > MOST:
        raise ValueError(f"{name} is too long: {array.size} values")
    return array


def bits(values: ArrayLike, name: str = "bits", holes: bool = False) -> Bits:
    """One bit a byte, each 0 or 1; with `holes` also 0xFF."""
    array = _array(values, "bui", np.uint8, name, "integers")
    if not np.all((array == 0) | (array == 1) | (holes & (array == HOLE))):
        raise ValueError(f"{name} must be 0 or 1" + (", or 255 for a hole" if holes else ""))
    return np.ascontiguousarray(array, dtype=np.uint8)


def reals(values: ArrayLike, name: str) -> Reals:
    return np.ascontiguousarray(_array(values, "buif", np.float64, name, "real numbers"), dtype=np.float64)


def complexes(values: ArrayLike, name: str) -> Complexes:
    array = _array(values, "buifc", np.complex128, name, "complex numbers")
    return np.ascontiguousarray(array, dtype=np.complex128)


def sound(values: Any) -> NDArray[np.int16]:
    """Samples of any shape as 16-bit ones: int16 as they are, floating-point ones from -1 to 1 scaled."""
    array = np.asarray(values)
    if array.dtype.kind == "f":
        return _scaled(array)
    if array.dtype.kind != "i" or array.dtype.itemsize != 2:
        raise TypeError(f"samples must be int16, or floating-point numbers from -1 to 1, not {array.dtype}")
    return array


def _scaled(array: NDArray[Any]) -> NDArray[np.int16]:
    levels = np.nan_to_num(array.astype(np.float64), nan=0.0, posinf=1.0, neginf=-1.0)
    most = np.abs(levels).max(initial=0.0)
    if most > MOST_OVERDRIVE:
        raise ValueError(f"samples reach {most:.6g}: floating-point ones lie between -1 and 1")
    return np.clip(np.rint(levels * FULL_SCALE), -FULL_SCALE, FULL_SCALE - 1).astype(np.int16)


def pcm(values: ArrayLike) -> NDArray[np.int16]:
    """One channel's 16-bit samples, in the machine's byte order."""
    return np.ascontiguousarray(_array(sound(values), "i", np.int16, "samples", "int16"), dtype=np.int16)


def octets(data: Any, name: str) -> bytes:
    try:
        return memoryview(data).cast("B").tobytes()
    except TypeError:
        raise TypeError(f"{name} must be bytes, not {type(data).__name__}") from None


def count(value: Any, name: str, least: int, most: int = MOST) -> int:
    number = operator.index(value)
    if not least <= number <= most:
        raise ValueError(f"{name} must be {least} to {most}, not {number}")
    return number


def filled(step: Callable[..., bool], what: str, out: NDArray[Any], *arguments: Any) -> NDArray[Any]:
    """`out` once `step(*arguments)` has filled it; an exception when the step refuses."""
    lib.forget_errors()
    if not step(*arguments):
        raise lib.error(what)
    return out


def view(array: NDArray[Any]) -> Any:
    """A vector record over numpy memory; the caller keeps the array alive."""
    vector, element = _VIEWS[array.dtype.type]
    return vector(0, array.size, 1, array.ctypes.data_as(ctypes.POINTER(element)))


_VIEWS: dict[Any, tuple[Any, Any]] = {
    np.uint8: (records.VectorUint8, records.u8), np.float64: (records.Vector, records.f64),
    np.complex128: (records.VectorComplex, records.f64)}
_FAMILIES: dict[Any, tuple[Any, str]] = {
    records.VectorUint8: (np.uint8, "kom_vector_uint8_free"), records.Vector: (np.float64, "kom_vector_free"),
    records.VectorComplex: (np.complex128, "kom_vector_complex_free")}


def copied(vector: Any) -> NDArray[Any]:
    """The elements of a vector record, which stays the library's."""
    dtype, _ = _FAMILIES[type(vector)]
    if vector.size == 0:
        return np.empty(0, dtype)
    parts = 2 if dtype is np.complex128 else 1
    return np.ctypeslib.as_array(vector.data, (parts * vector.size,)).copy().view(dtype)


def run(step: Callable[..., Any], what: str, array: NDArray[Any], *arguments: Any) -> NDArray[Any]:
    """The result of a step from vector to vector; an exception when it refuses."""
    lib.forget_errors()
    source = view(array)
    result = step(ctypes.byref(source), *arguments)
    if not result:
        raise lib.error(what)
    try:
        return copied(result.contents)
    finally:
        getattr(lib, _FAMILIES[type(result.contents)][1])(result)
