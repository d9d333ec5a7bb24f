"""Draws docs/frame.png from a frame of the command: frame_picture.py KOSC OUTPUT (needs python3-matplotlib)."""
import subprocess
import sys
import tempfile
import wave

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

RATE = 48  # samples a millisecond
PAD_MS = 20
SYMBOL_MS = 1280 / RATE
SYMBOLS = ["D1", "SYNC", "D2", "D3", "PILOT", "D4", "D5", "PILOT", "D6"]
BAND_KHZ = (18, 20.953)


def frame(kosc):
    with tempfile.NamedTemporaryFile(suffix=".wav") as sound:
        subprocess.run([kosc, "encode", "hello over sound", "--pad", str(PAD_MS), "-o", sound.name], check=True)
        with wave.open(sound.name) as recording:
            return np.frombuffer(recording.readframes(recording.getnframes()), "<i2") / 32768


samples = frame(sys.argv[1])
end = len(samples) / RATE
figure, (wave_axes, axes) = plt.subplots(2, 1, figsize=(9, 4.6), dpi=80, sharex=True, height_ratios=(1, 3))
wave_axes.plot(np.arange(len(samples)) / RATE, samples, lw=0.25, color="#246")
wave_axes.set(ylim=(-1, 1), yticks=[-0.8, 0, 0.8], ylabel="sample")
with np.errstate(divide="ignore"):  # silence before and after
    axes.specgram(samples, NFFT=512, Fs=RATE, noverlap=480, cmap="magma", vmin=-90, vmax=-12, scale="dB")
axes.set(facecolor="black", xlim=(0, end), ylim=(16, 23), xlabel="ms", ylabel="kHz")
for i in range(len(SYMBOLS) + 1):
    start = PAD_MS + i * SYMBOL_MS
    wave_axes.axvline(start, color="0.7", lw=0.6, ls=":")
    axes.axvline(start, color="w", lw=0.6, ls=":")
    if i < len(SYMBOLS):
        axes.text(start + SYMBOL_MS / 2, 22.2, SYMBOLS[i], color="w", ha="center", fontsize=9)
for edge in BAND_KHZ:
    axes.axhline(edge, color="#9df", lw=0.6, ls="--")
    axes.text(1, edge + 0.1, f"{edge:.2f}", color="#9df", fontsize=9)
figure.tight_layout()
figure.savefig(sys.argv[2])
