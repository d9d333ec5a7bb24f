"""Bands: where in the spectrum a modem works, by name or by where it begins."""

from __future__ import annotations

import ctypes
import itertools
import numbers
from typing import Any, Iterable, NamedTuple, Union

from . import _records as records
from ._library import lib

ALL = "all"
WIDE = "wide"


class Band(NamedTuple):
    """64 subcarriers side by side, so a band is known by its first one."""

    name: str
    """empty for a band that has none"""
    use: str
    """what it is for, in a line of English; empty for a band without a name"""
    first_subcarrier: int
    """number of the first subcarrier"""
    low_hz: float
    """frequency of the first subcarrier"""
    high_hz: float
    """frequency of the last one"""

    def __str__(self) -> str:
        return self.name or f"{self.low_hz:g} Hz"


BandChoice = Union[str, float, Band]


def _copied(record: Any) -> Band:
    return Band(record.name.decode(), record.use.decode(), record.first_subcarrier, record.low_hz, record.high_hz)


def _named() -> Iterable[Band]:
    index = 0
    while record := lib.ko_soundcommu_get_band(index):
        yield _copied(record.contents)
        index += 1


BANDS: tuple[Band, ...] = tuple(_named())
"""The bands that have a name, from the lowest up."""


def find_band(band: BandChoice) -> Band:
    """The band that is meant: by its name, by where it begins in Hz (moved to the nearest subcarrier), or as a record."""
    if isinstance(band, Band):
        band = band.low_hz
    if not isinstance(band, (str, numbers.Real)):
        raise TypeError(f"a band is a name, where it begins in Hz, or one of kosc.BANDS, not {type(band).__name__}")
    record = records.Band()
    text = str(band).replace("\0", " ").encode(errors="replace")
    answer, reason = lib.ask(lib.ko_soundcommu_find_band, text, ctypes.byref(record))
    if answer != 0:
        raise ValueError(reason)
    return _copied(record)


WIDE_BANDS: tuple[Band, ...] = tuple(
    find_band(band) for band in ("voice", 5203.125, 8390.625, 11578.125, 14765.625, "near-ultrasonic"))
"""Six bands side by side, from the lowest up, that messages may sound in at once: all that loudspeakers carry."""
SETS = {ALL: BANDS, WIDE: WIDE_BANDS}


def find_bands(choice: Union[BandChoice, Iterable[BandChoice]]) -> tuple[Band, ...]:
    """The bands, each once, that `choice` means: one, several, "wide" for WIDE_BANDS, or "all" that have a name."""
    if isinstance(choice, str) and choice in SETS:
        return SETS[choice]
    several = isinstance(choice, Iterable) and not isinstance(choice, (str, Band))
    found = tuple(dict.fromkeys(find_band(band) for band in (choice if several else (choice,))))
    if not found:
        raise ValueError("there is no band to listen on")
    return found


def bands_apart(choice: Union[BandChoice, Iterable[BandChoice]]) -> tuple[Band, ...]:
    """The same for who sends on all of them at once, which those that overlap do not bear."""
    found = find_bands(choice)
    for one, other in itertools.combinations(found, 2):
        if one.low_hz <= other.high_hz and other.low_hz <= one.high_hz:
            raise ValueError(f"the bands {one} and {other} overlap, so that messages cannot be sent in both at once")
    return found


def configuration(band: Band) -> Any:
    """The built-in configuration, in that band."""
    cfg = records.Cfg()
    if not lib.soundcomm_cfg_for_band(band.first_subcarrier, ctypes.byref(cfg)):
        raise lib.error("cannot set up the band")
    return cfg


DEFAULT_BAND: Band = next(
    band for band in BANDS if band.first_subcarrier == lib.soundcomm_default_cfg().contents.ofdm.sc_start_idx)
"""The band of sender and receiver unless another is asked for: near-ultrasonic."""
