#!/usr/bin/env python3
"""Draws what a receiver sees of one frame: frame_picture.py [picture.png]

The frame comes through a room with an echo and white noise. The picture has its waterfall with the symbols marked, the
correlation by which it is found, and the constellation before and after the channel that the pilots measured is
divided out.
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

import kosc
from kosc import core

MESSAGE = b"hello over sound"
START = 4800  # samples of noise before the frame: 0.1 s
ECHO_DELAY, ECHO_GAIN = 41, 0.5
NOISE = 1500.0  # standard deviation
BAND = (17000, 22000)
BLUE, ORANGE, GREY = "#1f5fa8", "#d9661f", "#666666"


def record(seed=1):
    """A recording of the message, in int16, of half a second."""
    frame = kosc.encode(MESSAGE).astype(float)
    sound = np.random.default_rng(seed).normal(0.0, NOISE, kosc.SAMPLE_RATE // 2)
    sound[START:START + frame.size] += 0.5 * frame
    sound[START + ECHO_DELAY:START + ECHO_DELAY + frame.size] += 0.5 * ECHO_GAIN * frame
    return np.clip(sound, -32768, 32767).astype(np.int16)


def equalise(modem, spectra):
    """Data symbols over the channel that the pilots show on average, and turned back."""
    channel = np.mean([spectra[i] / modem.pilot(i) for i in modem.pilots], axis=0)
    data = [i for i in range(modem.symbols) if i not in modem.pilots]
    return modem.phase_pattern.restore((spectra[data] / channel).ravel())


def draw_waterfall(axes, sound, modem, start):
    """Short spectra over time, with the frame's symbols marked."""
    _, _, _, image = axes.specgram(sound, NFFT=512, Fs=kosc.SAMPLE_RATE, noverlap=448, window=np.hanning(512),
                                   cmap="magma", vmin=5, vmax=55)
    symbol = (modem.symbol_len + modem.cp_len) / kosc.SAMPLE_RATE
    for i in range(modem.symbols):
        left = start / kosc.SAMPLE_RATE + i * symbol
        axes.axvline(left, color="white", linewidth=0.5, alpha=0.6)
        pilot = i in modem.pilots
        axes.text(left + symbol / 2, 21500, "pilot" if pilot else "data", color="white", ha="center", fontsize=9,
                  weight="bold" if pilot else "normal")
    axes.axvline(left + symbol, color="white", linewidth=0.5, alpha=0.6)
    axes.set(ylim=BAND, ylabel="frequency in kHz", title="Waterfall")
    axes.yaxis.set_major_formatter(lambda hertz, _: f"{hertz / 1000:g}")
    return image


def draw_correlation(axes, buffer):
    """The correlation with the synchronisation pilot, against the threshold."""
    time = np.arange(buffer.correlation.size) / kosc.SAMPLE_RATE
    axes.plot(time, buffer.correlation, color=BLUE, linewidth=0.6)
    axes.axhline(buffer.threshold, color=ORANGE, linewidth=1, linestyle="--")
    axes.text(time[-1], buffer.threshold + 0.04, "threshold ", color=ORANGE, ha="right", fontsize=8)
    axes.set(xlim=(0, time[-1]), ylim=(0, 1), xlabel="time in s", ylabel="correlation",
             title="Correlation with the synchronisation pilot")


def draw_constellation(axes, points, title, scale):
    axes.axhline(0, color=GREY, linewidth=0.5)
    axes.axvline(0, color=GREY, linewidth=0.5)
    axes.scatter(points.real / scale, points.imag / scale, s=7, color=BLUE, alpha=0.7, linewidths=0)
    axes.set(xlim=(-2, 2), ylim=(-2, 2), aspect="equal", title=title, xlabel="in phase", ylabel="quadrature")


def main(path):
    sound = record()
    modem, buffer = core.Modem(), core.SampleBuffer(sound)
    start = next(buffer.frame_starts())
    frame = buffer.filtered[start:start + modem.frame_length]
    message, quality = modem.second_look(frame)

    spectra = modem.spectra(frame)
    data = np.delete(spectra, modem.pilots, axis=0).ravel()
    figure = plt.figure(figsize=(12, 6.4), layout="constrained")
    grid = figure.add_gridspec(2, 2, width_ratios=(2.4, 1))
    waterfall, correlation = figure.add_subplot(grid[0, 0]), figure.add_subplot(grid[1, 0])
    image = draw_waterfall(waterfall, sound, modem, start)
    figure.colorbar(image, ax=waterfall, label="power in dB", pad=0.01)
    waterfall.sharex(correlation)
    waterfall.tick_params(labelbottom=False)
    draw_correlation(correlation, buffer)
    draw_constellation(figure.add_subplot(grid[0, 1]), data, "Received", np.sqrt(np.mean(np.abs(data) ** 2)))
    draw_constellation(figure.add_subplot(grid[1, 1]), equalise(modem, spectra), "Equalised", 1.0)
    figure.suptitle(f"A frame with “{MESSAGE.decode()}”, heard at {quality.snr_db:.0f} dB with an echo after "
                    f"{1000 * ECHO_DELAY / kosc.SAMPLE_RATE:.2f} ms")
    figure.savefig(path, dpi=120)
    print(f"found at sample {start}, {quality.snr_db:.1f} dB: {message.rstrip(bytes(1)).decode()}; drawn in {path}")


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "frame.png")
