"""Converts sound to the modem's rate."""

from __future__ import annotations

import math
from typing import Any, Iterable, Iterator

import numpy as np
from numpy.typing import NDArray

HALF_WIDTH = 64  # samples of the slower rate on each side of the filter's centre
BETA = 7.86  # 80 dB; Kaiser 1974, "Nonrecursive digital filter design using the I0-sinh window function"
PASSED = 0.492  # of the slower rate: what lies below passes, the last of it up to 1.2 dB weaker
BLOCK = 2**15  # samples that are converted at a time, at least


def resampled(signal: Any, blocks: Iterable[NDArray[np.float64]], rate: int, to: int) -> Iterator[NDArray[np.float64]]:
    """Blocks of shape (n, channels) at another rate, output sample k at the time of input sample k * rate / to.

    `signal` is scipy.signal. What lies below 0.48 of the slower rate (of 44100 Hz, 21.1 kHz) passes to a thousandth, and
    images and aliases of that are 80 dB down.
    """
    divisor = math.gcd(rate, to)
    up, down = to // divisor, rate // divisor
    phases = max(up, down)
    taps = signal.firwin(2 * HALF_WIDTH * phases + 1, 1.0 / phases, window=("kaiser", BETA))
    # Each piece is converted with its neighbourhood, of which whole periods of both rates are cut off again.
    edge = math.ceil(HALF_WIDTH * phases / up / down + 1) * down
    waiting = None
    for block in _followed_by_silence(blocks, edge + down):
        silence = np.zeros((edge, block.shape[1]))
        waiting = np.concatenate([silence if waiting is None else waiting, block])
        ready = (len(waiting) - 2 * edge) // down * down
        if ready > 0:
            piece = signal.resample_poly(waiting[:ready + 2 * edge], up, down, axis=0, window=taps)
            yield piece[edge // down * up:(edge + ready) // down * up]
            waiting = waiting[ready:]


def _followed_by_silence(blocks: Iterable[NDArray[np.float64]], samples: int) -> Iterator[NDArray[np.float64]]:
    """In pieces that are long against the filter, whatever the blocks' size."""
    pieces: list[NDArray[np.float64]] = []
    channels = 0
    for block in blocks:
        channels = block.shape[1]
        pieces.append(block)
        if sum(map(len, pieces)) >= BLOCK:
            yield np.concatenate(pieces)
            pieces = []
    yield np.concatenate([*pieces, np.zeros((samples, channels))])
