"""Messages into sound."""

from __future__ import annotations

import ctypes
import functools
import weakref
from typing import Any, Union

import numpy as np
from numpy.typing import DTypeLike, NDArray

from . import _arrays as arrays
from . import _records as records
from ._bands import DEFAULT_BAND, BandChoice, find_band
from ._library import lib

_cfg = lib.soundcomm_default_cfg().contents
SAMPLE_RATE: int = lib.soundcomm_default_audio_format().sample_rate
"""Samples per second of everything played and recorded: 48000."""
MESSAGE_LENGTH: int = _cfg.msg_byte_len
"""Bytes of a message: 28."""
FRAME_LENGTH: int = lib.soundcomm_get_frame_length_from_cfg(_cfg)
"""Samples of a frame: 11520, which is 0.24 s."""

MOST_SENDERS = 8


class _Sender:
    """A handle that encodes in one band; encoding leaves no trace in it."""

    def __init__(self, first_subcarrier: int) -> None:
        options = records.Options()
        lib.ko_soundcommu_default_options(ctypes.byref(options), ctypes.sizeof(options))
        options.first_subcarrier = first_subcarrier
        lib.forget_errors()
        self.handle = lib.ko_soundcommu_init_with(ctypes.byref(options))
        if not self.handle:
            raise lib.error("cannot set up the modem")
        weakref.finalize(self, lib.ko_soundcommu_release, self.handle)


_sender = functools.lru_cache(maxsize=MOST_SENDERS)(_Sender)


def padded(message: Union[str, bytes]) -> bytes:
    """A message of full length: text as UTF-8, what is missing as zero bytes."""
    data = message.encode() if isinstance(message, str) else arrays.octets(message, "message")
    if len(data) > MESSAGE_LENGTH:
        raise ValueError(f"message has {len(data)} bytes; {MESSAGE_LENGTH} are the most that fit")
    return data.ljust(MESSAGE_LENGTH, b"\0")


def encode(message: Union[str, bytes], dtype: DTypeLike = np.int16, band: BandChoice = DEFAULT_BAND) -> NDArray[Any]:
    """One frame of sound that carries `message`: FRAME_LENGTH samples, mono, SAMPLE_RATE Hz, 0.8 of full scale.

    `message` is text or bytes, up to MESSAGE_LENGTH bytes; what is missing is sent as zero bytes. The samples are int16
    or, with `dtype` float32 or float64, numbers from -1 to 1. `band` is as for find_band(); receivers listen on the same.
    """
    data = padded(message)
    kind = np.dtype(dtype)
    if kind not in (np.int16, np.float32, np.float64):
        raise TypeError(f"dtype must be int16, float32 or float64, not {kind}")
    frame = np.empty(FRAME_LENGTH, np.int16)
    sender = _sender(find_band(band).first_subcarrier)
    lib.forget_errors()
    if lib.ko_soundcommu_encode(sender.handle, data, len(data), frame.ctypes.data, frame.nbytes) != 0:
        raise lib.error("cannot encode the message")
    return frame if kind == np.int16 else (frame / arrays.FULL_SCALE).astype(kind)
