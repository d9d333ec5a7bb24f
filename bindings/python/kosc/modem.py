"""Messages into sound."""

from __future__ import annotations

import functools

import numpy as np
from numpy.typing import NDArray

from . import _arrays as arrays
from . import _records as records
from ._library import lib

_cfg = lib.soundcomm_default_cfg().contents
SAMPLE_RATE: int = lib.soundcomm_default_audio_format().sample_rate
"""Samples per second of everything played and recorded: 48000."""
MESSAGE_LENGTH: int = _cfg.msg_byte_len
"""Bytes of a message: 28."""
FRAME_LENGTH: int = lib.soundcomm_get_frame_length_from_cfg(_cfg)
"""Samples of a frame: 11520, which is 0.24 s."""

_ignore = records.RECV_CALLBACK(lambda results, count: None)


@functools.lru_cache(maxsize=None)
def _handle() -> int:
    """The one handle that encodes; encoding leaves no trace in it."""
    lib.forget_errors()
    handle = lib.ko_soundcommu_init(_ignore, _ignore)
    if not handle:
        raise lib.error("cannot set up the modem")
    return int(handle)


def padded(message: bytes) -> bytes:
    """A message of full length: what is missing is zero bytes."""
    data = arrays.octets(message, "message")
    if len(data) > MESSAGE_LENGTH:
        raise ValueError(f"message has {len(data)} bytes; {MESSAGE_LENGTH} are the most that fit")
    return data.ljust(MESSAGE_LENGTH, b"\0")


def encode(message: bytes) -> NDArray[np.int16]:
    """One frame of sound that carries `message`: FRAME_LENGTH int16 samples, mono, SAMPLE_RATE Hz, 0.8 of full scale.

    `message` is up to MESSAGE_LENGTH bytes; what is missing is sent as zero bytes.
    """
    data = padded(message)
    frame = np.empty(FRAME_LENGTH, np.int16)
    handle = _handle()
    lib.forget_errors()
    if lib.ko_soundcommu_encode(handle, data, len(data), frame.ctypes.data, frame.nbytes) != 0:
        raise lib.error("cannot encode the message")
    return frame
