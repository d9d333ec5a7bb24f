"""kosc check, on files that simulated devices recorded of its sound: `check_test.py <kosc>`."""

import json
import subprocess
import sys
import tempfile
import wave
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).parents[1] / "long"))
from spoilings import RATE, at_speed, low_passed, spectrum_times, write

RANDOM = np.random.default_rng(1)


def with_room(sound):
    """Mostly low sounds."""
    return sound + low_passed(RANDOM.normal(0, 100, len(sound)), 2000) + RANDOM.normal(0, 3, len(sound))


def loudness(sound, samples):
    """The sound's level as one hears it who forgets within so many samples."""
    kernel = np.exp(-np.arange(10 * samples) / samples) / samples
    size = 1 << (len(sound) + len(kernel)).bit_length()
    return np.fft.irfft(np.fft.rfft(np.abs(sound), size) * np.fft.rfft(kernel, size), size)[:len(sound)]


def laptop(sound):
    rolled_off = spectrum_times(sound, lambda hz: 10 ** (-10 / 20 * np.clip((hz - 16000) / 5000, 0, 1)))
    return with_room(np.concatenate([np.zeros(7000), 0.1 * rolled_off]))


def two_clocks_in_a_room(sound):
    tail = RANDOM.normal(size=int(0.3 * RATE)) * 10 ** (-3 * np.arange(int(0.3 * RATE)) / (0.3 * RATE))
    tail[:240] = 0
    tail *= 10 ** (-6 / 20) / np.sqrt(np.sum(tail ** 2))
    tail[0] = 1
    return with_room(0.2 * np.convolve(at_speed(sound, 1 + 60e-6), tail))


def echo_canceller(sound):
    """The longer a sound lasts, the fainter it becomes: 20 dB in two seconds."""
    lasted = np.minimum(np.cumsum(loudness(sound, 2400) > 1000) / (2 * RATE), 1)
    return with_room(0.3 * sound * 10 ** -lasted)


def half_duplex(sound):
    """While the loudspeaker sounds, the room is turned down."""
    return 0.1 * sound + np.where(loudness(sound, 480) > 100, 0.1, 1) * with_room(np.zeros(len(sound)))


def busy_computer(sound):
    return np.delete(with_room(0.2 * sound), [at + i for at in (150000, 200000, 250000) for i in range(512)])


DEVICES = [  # verdict, cause, best band
    (laptop, "good", "none", "near-ultrasonic"),
    (two_clocks_in_a_room, "good", "none", "near-ultrasonic"),
    (lambda sound: np.clip(with_room(4 * sound), -32767, 32767), "usable", "clipping", "high"),
    (lambda sound: with_room(low_passed(0.3 * sound, 16000)), "unfit", "low-pass", "high"),  # a headset
    (echo_canceller, "usable", "suppression", "high"),
    (half_duplex, "usable", "suppression", "high"),
    (lambda sound: 0.01 * sound + RANDOM.normal(0, 400, len(sound)), "unfit", "noise", None),  # beside a power supply
    (lambda sound: with_room(0.00012 * sound), "unfit", "faint", None),  # across the hall
    (lambda sound: with_room(0 * sound), "unfit", "nothing", None),  # muted
    (busy_computer, "usable", "lost-samples", "high"),
]


def main(kosc):
    with tempfile.TemporaryDirectory() as folder:
        def check(*words):
            done = subprocess.run([kosc, "check", "--json", *words], capture_output=True, text=True, cwd=folder)
            return done.returncode, done.stdout

        for band in "near-ultrasonic", "voice":
            assert check("--band", band, "--write-signal", f"{band}.wav")[0] == 0
            code, out = check("--band", band, "--recording", f"{band}.wav")
            assert code == 0 and json.loads(out)["clipped_samples"] == 0, out
        assert check("--recording", "voice.wav")[0] == 1  # its frames are not in the band that is tried
        with wave.open(f"{folder}/near-ultrasonic.wav") as file:
            played = np.frombuffer(file.readframes(file.getnframes()), np.int16).astype(float)
        for index, (record, *expected) in enumerate(DEVICES):
            write(f"{folder}/{index}.wav", record(played))
            code, out = check("--recording", f"{index}.wav")
            found = json.loads(out)
            named = [found["verdict"], found["cause"], found["best_band"]]
            assert named == expected and code == (named[0] == "unfit"), (index, expected, code, out)
        played[len(played) // 2:] = 0
        write(f"{folder}/half.wav", with_room(played))
        out = subprocess.run([kosc, "check", "--recording", "half.wav"], capture_output=True, text=True, cwd=folder)
        assert "second sweep missing, " in out.stdout, out


main(sys.argv[1])
