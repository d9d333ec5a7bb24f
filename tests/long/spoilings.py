#!/usr/bin/env python3
"""Spoils recordings by means that are not in `kosc simulate`, and counts how often `kosc inspect` names the right cause.

Every case draws message, level, place and background noise anew from its seed. A cause counts as right when it is among
those of its spoiling, or is "none" and every frame decodes at once, as then nothing was spoilt; "not recognised" is
neither right nor wrong. Frames and verdict must agree in every case. tests/long/spoilings.sh runs them all, and
tests/tools those that need no codec, a few times each, where a missed goal is a failure.
"""

import argparse
import collections
import concurrent.futures
import json
import subprocess
import sys
import tempfile
import wave
from pathlib import Path

import numpy as np

RATE = 48000
FRAME = 11520
PREFIX = 256
FULL_SCALE = 32767


class Stage:
    """A recording of some 0.9 s with a frame in it, whose background is a microphone's noise and low voices."""

    def __init__(self, kosc, folder, r, band):
        self.kosc, self.folder, self.r, self.band = kosc, folder, r, band
        self.frame = self.encode() * self.level(0.012, 0.15)
        self.start = int(r.integers(9000, 16000))
        self.length = self.start + FRAME + int(r.integers(9000, 16000))

    def level(self, low, high):
        return FULL_SCALE * np.exp(self.r.uniform(np.log(low), np.log(high)))

    def encode(self):
        """A frame with a message of its own and power 1."""
        path = self.folder / "frame.wav"
        subprocess.run([self.kosc, "encode", "--hex", self.r.bytes(28).hex(), "--band", self.band, "-o", path, "--pad", "0"],
                       check=True)
        with wave.open(str(path)) as file:
            sound = np.frombuffer(file.readframes(FRAME), np.int16).astype(float)
        return sound / np.sqrt(np.mean(sound ** 2))

    def quiet(self):
        """The frame alone, without background."""
        sound = np.zeros(self.length)
        sound[self.start:self.start + FRAME] = self.frame
        return sound

    def background(self, sound):
        power = np.mean(self.frame ** 2)
        noise = power * 10 ** (-self.r.uniform(18, 35) / 10) * 24000 / 2953
        voices = low_passed(self.r.normal(size=len(sound)), 1500)
        voices *= np.sqrt(power) * self.r.uniform(0.1, 1.0) / np.sqrt(np.mean(voices ** 2))
        voices *= 0.1 if self.band == "telephone" else 1  # where they are in the band, and noise to it
        return sound + self.r.normal(size=len(sound)) * np.sqrt(noise) + voices

    def sound(self):
        return self.background(self.quiet())


def spectrum_times(sound, gain_of):
    size = len(sound) + RATE // 10
    return np.fft.irfft(np.fft.rfft(sound, size) * gain_of(np.fft.rfftfreq(size, 1 / RATE)), size)[:len(sound)]


def low_passed(sound, cutoff):
    return spectrum_times(sound, lambda hz: 1 / (1 + np.exp(np.clip((hz - cutoff) / 80, -500, 500))))


def at_speed(sound, factor):
    """Played so many times as fast, with all frequencies of the result."""
    size = 1 << len(sound).bit_length()
    padded = np.concatenate([sound, np.zeros(size - len(sound))])
    length = int(round(size / factor / 2) * 2)
    return np.fft.irfft(np.fft.rfft(padded)[:length // 2 + 1], length)[:int(len(sound) / factor)] * length / size


def moving(values, window):
    kernel = np.ones(window) / window
    return np.convolve(values, kernel)[:len(values)]


def dropped(s, every, count):
    sound, offset = s.sound(), int(s.r.integers(every))
    return sound[(np.arange(len(sound)) + offset) % every >= count]


def doubled(s, every, count):
    sound = s.sound()
    begin = int(s.r.integers(every))
    return np.concatenate([np.concatenate([sound[i:i + every], sound[i + every - count:i + every]])
                           for i in range(begin, len(sound), every)])


def replaced(s, every, count, by):
    """Every so often, `count` samples are what `by` makes of the past."""
    sound = np.round(s.sound())
    for i in range(every // 2 + int(s.r.integers(every)), len(sound) - count, every):
        sound[i:i + count] = by(sound[:i], count)
    return sound


def concealed(past, count):
    """The last 5 ms over and over, fainter and fainter, as telephony conceals a packet."""
    return np.resize(past[-240:], count) * np.linspace(1, 0.2, count)


def through(s, sound, encode, decode=None):
    """Through a codec and back; the steps are command lines over IN and OUT."""
    names = {"IN": s.folder / "in.wav", "CODED": s.folder / "coded.bin", "OUT": s.folder / "out.wav"}
    write(names["IN"], sound)
    for step in (encode, decode):
        subprocess.run([str(names.get(word, word)) for word in step], check=True, capture_output=True)
    with wave.open(str(names["OUT"])) as file:
        return np.frombuffer(file.readframes(file.getnframes()), np.int16).astype(float)


def mp3(s, kbits, *more):
    return through(s, s.sound(), ["lame", "--quiet", "-m", "m", "-b", str(kbits), *more, "IN", "CODED"],
                   ["lame", "--quiet", "--decode", "CODED", "OUT"])


def aac(s, kbits):
    return through(s, s.sound(), ["ffmpeg", "-y", "-i", "IN", "-c:a", "aac", "-b:a", f"{kbits}k", "-f", "adts", "CODED"],
                   ["ffmpeg", "-y", "-f", "aac", "-i", "CODED", "OUT"])


def opus(s, kbits, loss=0):
    return through(s, s.sound(), ["opusenc", "--quiet", "--bitrate", str(kbits), "IN", "CODED"],
                   ["opusdec", "--quiet", "--rate", "48000", "--no-dither", "--packet-loss", str(loss), "CODED", "OUT"])


def spectral_gate(s):
    """Bins less than some dB above the background's typical level become zero."""
    sound, hop = s.sound(), 256
    window = np.hanning(2 * hop + 1)[:-1]
    blocks = [np.fft.rfft(window * sound[i:i + 2 * hop]) for i in range(0, len(sound) - 2 * hop, hop)]
    threshold = np.median(np.abs(blocks), axis=0) * 10 ** (s.r.uniform(9, 16) / 20)
    out = np.zeros(len(sound))
    for i, block in enumerate(blocks):
        out[i * hop:(i + 2) * hop] += np.fft.irfft(np.where(np.abs(block) > threshold, block, 0))
    return out


def substituted(s):
    """Two blocks for which a coder has so few bits that it puts noise of the same power in place of the band."""
    sound, size = s.sound(), 1280
    for place in s.r.uniform([0.12, 0.55], [0.4, 0.8]):
        block = sound[s.start + int(place * FRAME):][:size]
        bins = np.fft.rfft(block)
        bins[475:565] *= np.exp(2j * np.pi * s.r.uniform(size=90))
        block[:] = np.fft.irfft(bins)
    return sound


def suppressed(s):
    """The level falls within the frame, as a suppressor learns it."""
    share = np.clip((np.arange(s.length) - s.start) / FRAME, 0, 1)
    return s.sound() * 10 ** (-s.r.uniform(20, 40) / 20 * share)


def follow(sound, target, fall, rise):
    """Multiplies by a gain that nears `target` within so many samples."""
    gain, gains = 1.0, np.empty(len(sound))
    for i, wanted in enumerate(target):
        gain += (wanted - gain) / (fall if wanted < gain else rise)
        gains[i] = gain
    return sound * gains


def closing(s):
    """A suppressor that takes what lasts longer than 50 ms for noise."""
    sound = s.sound()
    target = np.ones(len(sound))
    target[s.start + 2400:s.start + FRAME] = 10 ** (-s.r.uniform(20, 45) / 20)
    return follow(sound, target, s.r.uniform(50, 400), 4000)


def agc(s):
    """Automatic gain that a frame pulls down by 30 dB."""
    sound = s.sound()
    target = np.ones(len(sound))
    target[s.start + 480:s.start + FRAME] = 10 ** (-30 / 20)
    return follow(sound, target, s.r.uniform(500, 2500), s.r.uniform(8000, 20000))


def pumping(s):
    sound, depth = s.sound(), s.r.uniform(10, 20)
    return sound * 10 ** (-depth / 40 * (1 + np.sin(2 * np.pi * (8 * np.arange(len(sound)) / RATE + s.r.uniform()))) / 1)


def senders(s, count):
    sound = s.quiet()
    for _ in range(count - 1):
        start = s.start + int(s.r.integers(300, 9000)) * int(s.r.choice([-1, 1]))
        sound[start:start + FRAME] += s.encode() * np.sqrt(np.mean(s.frame ** 2)) * s.r.uniform(0.7, 1.2)
    return s.background(sound)


def arrivals(s, *ranges):
    """Copies later by delays of these ranges."""
    dry = s.quiet()
    sound = dry.copy()
    for low, high, least, most in ranges:
        delay = int(s.r.integers(low, high))
        sound[delay:] += dry[:-delay] * s.r.uniform(least, most) * s.r.choice([-1, 1])
    return s.background(sound)


def room(s, rt60):
    tail = s.r.normal(size=int(rt60 * RATE)) * 10 ** (-3 * np.arange(int(rt60 * RATE)) / (rt60 * RATE))
    tail[:150] = 0
    tail *= 10 ** (s.r.uniform(0, 6) / 20) / np.sqrt(np.sum(tail ** 2))
    tail[0] = 1
    return s.background(np.fft.irfft(np.fft.rfft(s.quiet(), 1 << 17) * np.fft.rfft(tail, 1 << 17))[:s.length])


def interleaved(s):
    """A stereo recording whose header says mono."""
    dry = s.quiet()
    other = dry if s.r.uniform() < 0.5 else np.roll(dry, int(s.r.integers(1, 20))) * s.r.uniform(0.3, 1.0)
    return np.stack([s.background(dry), s.background(other)], axis=1).ravel()


def noisy(s):
    power = np.mean(s.frame ** 2)
    loud = power * 10 ** (s.r.uniform(1, 12) / 10) * 24000 / 2953
    sound = s.quiet() + s.r.normal(size=s.length) * np.sqrt(loud)
    return sound * min(1, 9000 / np.sqrt(loud))


def toned(s):
    sound = s.sound()
    hz = s.r.uniform(18100, 20800)
    return sound + np.sin(2 * np.pi * hz / RATE * np.arange(len(sound))) * np.sqrt(np.mean(s.frame ** 2)) * s.r.uniform(2, 6)


def clipped(s):
    sound = s.sound()
    limit = np.sqrt(np.mean(s.frame ** 2)) * s.r.uniform(0.4, 1.2)
    return np.clip(sound, -limit, limit)


def cut(s):
    """The recording begins, ends or falls silent within the frame."""
    share, where, end = int(s.r.uniform(0.2, 0.7) * FRAME), s.r.integers(3), s.start + FRAME
    if where == 0:
        s.frame[-share:] = 0
    sound = s.sound()
    return sound if where == 0 else sound[s.start + share:] if where == 1 else sound[:end - share]


def half_scale_sine(s):
    hz = s.r.choice([50, 100, 300, 375, 440, 1000, 3000, 12000])
    return 16384 * np.sin(2 * np.pi * hz / RATE * np.arange(RATE // 2) + s.r.choice([0, s.r.uniform(0, 6)]))


def eight_bits(s):
    voices = low_passed(s.r.normal(size=RATE // 2), s.r.uniform(800, 4000))
    return 256 * np.round(voices / np.max(np.abs(voices)) * s.r.uniform(3, 40))


LOST, CODEC, SUPPRESSION, SENDERS = "lost samples", ("lossy codec", "low-pass"), "suppression", "several senders"
LABEL = ("wrong speed",)
ABSENT = ("nothing sent", "noise", "low-pass", "tone", "cut")  # what is said of sound without any frame

# What is done, how, and what may be named.
SPOILINGS = [
    ("nothing", lambda s: s.sound(), ("none",)),
    ("10 ms dropped every 200 ms", lambda s: dropped(s, 9600, 480), (LOST,)),
    ("one sample dropped every 100 ms", lambda s: dropped(s, 4800, 1), (LOST,)),
    ("10 ms played twice every 100 ms", lambda s: doubled(s, 4800, 480), (LOST,)),
    ("10 ms repeated in place of the next", lambda s: replaced(s, 4800, 480, lambda p, n: p[-n:]), (LOST,)),
    ("zeros for 10 ms every 100 ms", lambda s: replaced(s, 4800, 480, lambda p, n: np.zeros(n)), (LOST,)),
    ("20 ms concealed every 120 ms", lambda s: replaced(s, 5760, 960, concealed), (LOST,)),
    ("MP3, 64 kbit/s", lambda s: mp3(s, 64), CODEC),
    ("MP3, 128 kbit/s", lambda s: mp3(s, 128), CODEC),
    ("MP3, 128 kbit/s, full band", lambda s: mp3(s, 128, "-k"), CODEC),
    ("MP3, 320 kbit/s", lambda s: mp3(s, 320), CODEC),
    ("AAC, 64 kbit/s", lambda s: aac(s, 64), CODEC),
    ("AAC, 128 kbit/s", lambda s: aac(s, 128), CODEC),
    ("Opus, 32 kbit/s", lambda s: opus(s, 32), CODEC),
    ("Opus, 96 kbit/s", lambda s: opus(s, 96), CODEC),
    ("Opus, 256 kbit/s", lambda s: opus(s, 256), CODEC),
    ("Opus, 160 kbit/s, 20 % of packets lost", lambda s: opus(s, 160, 20), CODEC + (LOST,)),
    ("hard spectral gating", spectral_gate, (SUPPRESSION,)),
    ("suppressor that closes after 50 ms", closing, (SUPPRESSION,)),
    ("level falls by 20 to 40 dB", suppressed, (SUPPRESSION,)),
    ("automatic gain pulls down 30 dB", agc, (SUPPRESSION, "gain control")),
    ("gain pumps at 8 Hz", pumping, ("gain control",)),
    ("two senders at once", lambda s: senders(s, 2), (SENDERS,)),
    ("three senders at once", lambda s: senders(s, 3), (SENDERS,)),
    ("speed off by 0.5 %", lambda s: at_speed(s.sound(), 1 + 0.005 * s.r.choice([-1, 1])), LABEL + ("drift",)),
    ("speed off by 1 %", lambda s: at_speed(s.sound(), 1 + 0.01 * s.r.choice([-1, 1])), LABEL),
    ("speed off by 3 %", lambda s: at_speed(s.sound(), 1 + 0.03 * s.r.choice([-1, 1])), LABEL),
    ("44.1 kHz labelled 48 kHz", lambda s: at_speed(s.sound(), 48000 / 44100), ("wrong rate",)),
    ("stereo read as mono", interleaved, ("channels mixed up",)),
    ("mono read as stereo", lambda s: s.sound()[:s.length // 2 * 2].reshape(-1, 2), ("channels mixed up",)),
    ("echoes within the prefix", lambda s: arrivals(s, (60, PREFIX - 40, 0.8, 1.0), (60, PREFIX - 40, 0.5, 0.9)),
     ("echo",)),
    ("an arrival 7 to 50 ms late", lambda s: arrivals(s, (336, 2400, 0.7, 1.0)), ("late arrival",)),
    ("a room of 0.5 s", lambda s: room(s, 0.5), ("echo",)),
    ("clipping", clipped, ("clipping",)),
    ("noise", noisy, ("noise",)),
    ("a tone in the band", toned, ("tone", "noise")),
    ("low-pass at 16 kHz", lambda s: low_passed(s.sound(), 16000), ("low-pass",)),
    ("low-pass at 19.3 kHz", lambda s: low_passed(s.sound(), 19300), ("low-pass",)),
    ("drift of 2000 to 4000 ppm", lambda s: at_speed(s.sound(), 1 + s.r.uniform(0.002, 0.004) * s.r.choice([-1, 1])),
     ("drift",)),
    ("part of the frame missing", cut, ("cut",)),
    ("recorded 60 dB lower", lambda s: s.sound() * 0.001, ("quiet", "silence")),
    ("an open input", lambda s: s.r.normal(size=RATE // 2) * s.r.uniform(0, 0.3), ("silence",)),
    ("a constant", lambda s: np.full(RATE // 2, s.r.uniform(-30000, 30000)), ("nothing sent", "silence")),
    ("a half-scale sine", half_scale_sine, ABSENT),
    ("quiet 8-bit sound", eight_bits, ABSENT),
    ("no samples", lambda s: np.zeros(0), ("no samples",)),
    ("noise in place of two blocks", substituted, CODEC),
]


def write(path, sound):
    with wave.open(str(path), "wb") as file:
        file.setparams((1 if sound.ndim == 1 else sound.shape[1], 2, RATE, 0, "NONE", ""))
        file.writeframes(np.clip(np.round(sound), -32768, 32767).astype("<i2").tobytes())


def contradictions(report, right):
    """What a report says against itself."""
    clipped = sum(channel["clipped_samples"] for channel in report["channels"])
    frames, cause, verdict = report["frames"], report["cause"], report["verdict"]
    causes = {frame["cause"] for frame in frames}
    decoded = [frame["decoded"] for frame in frames]
    found = [
        (frames and cause not in causes, "the recording's cause is no frame's"),
        (cause == "none" and not (frames and all(decoded)), "nothing is wrong, and no frame or not every frame decodes"),
        (any(f["cause"] == "none" and not f["decoded"] for f in frames), "nothing is wrong with a frame that fails"),
        ((not frames) != verdict.startswith("No "), "frames in list and verdict differ"),
        (any(f.get("chance") for f in frames), "a chance likeness in the list"),
        (decoded and all(decoded) and " not decode" in verdict, "the verdict says that a decoded frame does not decode"),
        (not all(decoded) and verdict.startswith("The frame found decodes"), "the verdict says that a failed frame decodes"),
        ("nothing sent" in right and clipped != 0, "clipped samples, and nothing was clipped"),
        (cause in ("no samples", "silence", "nothing sent") and frames, "frames, and none sent"),
    ]
    return [text for wrong, text in found if wrong]


def inspect(kosc, path, band):
    done = subprocess.run([kosc, "inspect", "--json", "--band", band, path], capture_output=True, text=True)
    if done.returncode not in (0, 1):
        sys.exit(f"kosc inspect failed: {done.stderr}")
    return json.loads(done.stdout)


def judge(kosc, index, seed, band, keep):
    name, spoil, right = SPOILINGS[index]
    with tempfile.TemporaryDirectory() as folder:
        stage = Stage(kosc, Path(folder), np.random.default_rng([seed, index]), band)
        path = Path(folder) / "spoilt.wav"
        write(path, spoil(stage))
        report = inspect(kosc, path, band)
        if keep:
            (keep / f"{index:02d}-{seed}.json").write_text(json.dumps(report))
            (keep / f"{index:02d}-{seed}.wav").write_bytes(path.read_bytes())
    cause, frames = report["cause"], report["frames"]
    at_once = bool(frames) and all(f["decoded"] and f["second_look"] == "not needed" for f in frames)
    verdict = ("right" if cause in right else "harmless" if cause == "none" and at_once
               else "not recognised" if cause == "not recognised" else "wrong")
    return name, verdict, cause, contradictions(report, right)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("kosc", help="the built command")
    parser.add_argument("--cases", type=int, default=100, help="of each spoiling")
    parser.add_argument("--first", type=int, default=1, help="the first case's seed")
    parser.add_argument("--only", default="", help="spoilings whose name has this in it")
    parser.add_argument("--band", default="near-ultrasonic")
    parser.add_argument("--strict", action="store_true", help="fail where less than 95 of 100 are right, too")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--keep", type=Path, help="a folder for recordings and reports")
    options = parser.parse_args()
    if options.keep:
        options.keep.mkdir(parents=True, exist_ok=True)
    wanted = [i for i, (name, _, _) in enumerate(SPOILINGS) if options.only in name]
    broken, below, missed = [], [], 0
    print("| spoiling | right | harmless | not recognised | wrong | named |\n|---|---|---|---|---|---|")
    with concurrent.futures.ProcessPoolExecutor(options.jobs) as pool:
        for index in wanted:
            seeds = range(options.first, options.first + options.cases)
            results = list(pool.map(judge, *zip(*[(options.kosc, index, seed, options.band, options.keep) for seed in seeds])))
            counts = collections.Counter(verdict for _, verdict, _, _ in results)
            causes = collections.Counter(cause for _, _, cause, _ in results)
            name = SPOILINGS[index][0]
            named = ", ".join(f"{cause} {count}" for cause, count in causes.most_common())
            print(f"| {name} | {counts['right']} | {counts['harmless']} | {counts['not recognised']} | "
                  f"{counts['wrong']} | {named} |", flush=True)
            broken += [f"{name}, seed {seed}: {text}" for seed, result in zip(seeds, results) for text in result[3]]
            few = counts["right"] + counts["harmless"] < 0.95 * options.cases
            missed += few
            if few or counts["wrong"] > 0.02 * options.cases:
                below.append(name)
    print("\n".join(["", *broken]))
    print(f"{len(wanted) - len(below)} of {len(wanted)} spoilings reach the goal" +
          (f"; below it: {'; '.join(below)}" if below else "") + f"; {len(broken)} contradictions.")
    return 1 if broken or not wanted or (missed and options.strict) else 0


if __name__ == "__main__":
    sys.exit(main())
