"""Messages into sound and back, through encode(), Receiver and listen()."""

import io
import itertools
import json
import math
import wave
from pathlib import Path

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

import kosc

VECTORS = Path(__file__).parents[3] / "tests" / "vectors"
RECORDINGS = json.loads((VECTORS / "recordings.json").read_text())


def recording(channels, *sounds, length=48000, noise=0):
    """int16 sound with noise; each of `sounds` is (message, channel, start, gain)."""
    sound = np.random.default_rng(7).normal(0.0, noise, (length, channels))
    for message, channel, start, gain in sounds:
        sound[start:start + kosc.FRAME_LENGTH, channel] += gain * kosc.encode(message)
    return np.clip(sound, -32768, 32767).astype(np.int16)


def hear(blocks, **options):
    with kosc.Receiver(**options) as receiver:
        return [m for block in blocks for m in receiver.push(block)] + receiver.finish()


def places(messages):
    return [(round(m.time * kosc.SAMPLE_RATE), m.channel, m.text) for m in messages]


@pytest.mark.parametrize("name", ["frame_count", "frame_random1"])
def test_encodes_the_known_frames(name):
    message = bytes.fromhex(json.loads((VECTORS / f"{name}.json").read_text())["message"])
    assert kosc.encode(message).tobytes() == (VECTORS / f"{name}.s16").read_bytes()


@pytest.mark.parametrize("name", [name for name in RECORDINGS if name != "cycle"])
def test_hears_the_known_recordings_however_they_are_cut(name):
    sound = np.fromfile(VECTORS / RECORDINGS[name]["file"], "<i2")
    for cutting, expected in RECORDINGS[name]["results"].items():
        sizes = {"whole": [sound.size], "cycle": RECORDINGS["cycle"]}.get(cutting) or [int(cutting)]
        ends = np.cumsum(list(itertools.islice(itertools.cycle(sizes), sound.size // min(sizes) + 1)))
        with kosc.Receiver(channels=1, second_look=False) as receiver:
            heard = [m for block in np.split(sound, ends[ends < sound.size]) for m in receiver.push(block)]
        assert [m.data.hex() for m in heard] == expected["messages"], cutting


@given(st.binary(max_size=28), st.integers(1, 4), st.data())
def test_any_message_on_any_channel_in_any_blocks_comes_back(message, channels, data):
    channel = data.draw(st.integers(0, channels - 1))
    start = data.draw(st.integers(0, 20000))
    ends = data.draw(st.lists(st.integers(0, 35000), max_size=4).map(sorted))
    sound = recording(channels, (message, channel, start, 0.2), length=35000, noise=100)
    heard = hear(np.split(sound, ends), channels=channels, second_look=False)
    assert [(m.channel, m.data) for m in heard] == [(channel, message.ljust(28, b"\0"))]
    assert heard[0].time * kosc.SAMPLE_RATE == pytest.approx(start, abs=1)


def test_the_second_look_hears_deeper_and_measures():
    sounds = [(b"%d" % i, i % 2, 1000 + 30000 * (i // 2), 0.1) for i in range(20)]
    sound = recording(2, *sounds, length=320000, noise=1250)
    plain, deep = hear([sound], second_look=False), hear([sound])
    assert plain and set(places(plain)) < set(places(deep))
    assert places(deep) == sorted(places(deep))
    assert all(math.isnan(m.snr_db) and math.isnan(m.drift_ppm) for m in plain)
    # The band is 3 of 24 kHz wide and gets an eighth of the noise.
    expected = 10 * math.log10(np.mean((0.1 * kosc.encode(b"0").astype(float)) ** 2) / (1250**2 / 8))
    assert all(abs(m.snr_db - expected) < 3 for m in deep)


def test_measures_the_drift_of_a_fast_sender():
    frame = kosc.encode(b"fast").astype(float)
    spectrum = np.fft.rfft(np.pad(frame, (4000, 50000 - 4000 - frame.size)))
    sound = np.fft.irfft(spectrum, 49950) * 49950 / 50000  # 50 samples fewer of 50000: 1001 ppm
    heard = hear([sound.astype(np.int16)], channels=1)
    assert [m.text for m in heard] == ["fast"]
    assert heard[0].drift_ppm == pytest.approx(1001, abs=15)


def test_listens_to_files_streams_and_blocks(tmp_path):
    sound = recording(2, (b"left", 0, 3000, 0.3), (b"end", 1, 50000 - kosc.FRAME_LENGTH, 0.3), length=50000, noise=20)
    expected = [(3000, 0, "left"), (50000 - kosc.FRAME_LENGTH, 1, "end")]
    path = tmp_path / "sound.wav"
    with wave.open(str(path), "wb") as file:
        file.setparams((2, 2, 48000, 0, "NONE", ""))
        file.writeframes(sound.astype("<i2").tobytes())

    class Dribble(io.BytesIO):
        def read(self, size=-1):
            return super().read(min(size, 1001))

    raw = sound.astype("<i2").tobytes()
    with wave.open(str(path)) as opened:
        for source in (path, str(path), opened, io.BytesIO(raw), Dribble(raw), np.array_split(sound, 7), sound,
                       raw, (sound.astype(">i2") for _ in "1")):
            assert places(kosc.listen(source)) == expected, source
    cut = tmp_path / "cut.wav"
    for missing, heard in ((2001, expected), (40001, expected[:1])):  # a piece of the last frame, most of it
        cut.write_bytes(path.read_bytes()[:-missing])
        assert places(kosc.listen(cut)) == heard


def test_text_is_none_when_the_bytes_are_no_text():
    for data, text in ((b"\xc3\xa9\0\0", "é"), (b"\xc3\0", None), (bytes(28), "")):
        assert kosc.Message(0.0, 0, data, 0.0, 0.0).text == text
