"""Messages into sound and back, through encode(), Receiver and listen()."""

import io
import json
import math
import subprocess
import sys
import wave
from pathlib import Path

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

import kosc
from kosc.resample import resampled

VECTORS = Path(__file__).parents[3] / "tests" / "vectors"


def recording(channels, *sounds, length=48000, noise=0, band=kosc.DEFAULT_BAND):
    """int16 sound with noise; each of `sounds` is (message, channel, start, gain)."""
    sound = np.random.default_rng(7).normal(0.0, noise, (length, channels))
    for message, channel, start, gain in sounds:
        sound[start:start + kosc.FRAME_LENGTH, channel] += gain * kosc.encode(message, band=band)
    return np.clip(sound, -32768, 32767).astype(np.int16)


def hear(blocks, **options):
    with kosc.Receiver(**options) as receiver:
        return [m for block in blocks for m in receiver.push(block)] + receiver.finish()


def places(messages):
    return [(round(m.time * kosc.SAMPLE_RATE), m.channel, m.text) for m in messages]


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
    assert {m.text for m in deep if m.second_look_needed} == {m.text for m in deep} - {m.text for m in plain}
    assert all((m.failed_crcs != 0) == m.second_look_needed for m in deep)
    assert all(0.4 < m.correlation < 0.99 and 0 < m.coherence <= 1 and 0.1 < m.evm < 2 and abs(m.drift_ppm) < 100
               for m in deep)
    assert all(math.isnan(figure) for m in plain for figure in (m.snr_db, m.drift_ppm, m.coherence, m.evm))
    # The band is 3 of 24 kHz wide and gets an eighth of the noise.
    expected = 10 * math.log10(np.mean((0.1 * kosc.encode(b"0").astype(float)) ** 2) / (1250**2 / 8))
    assert all(abs(m.snr_db - expected) < 3 for m in deep)


def test_repeats_too_weak_alone_are_put_together_of_one_microphone_and_of_two():
    sounds = [("again", channel, 20000 + 16000 * i + 11 * channel, 0.1) for i in range(3) for channel in (0, 1)]
    sound = recording(2, *sounds, length=68000, noise=2776)  # -4 dB in the band; the last frame ends with it
    how = {combine: hear([sound], recording=True, combine=combine) for combine in (None, "each", "together")}
    assert how[None] == []
    assert sorted(m.channel for m in how["each"]) == [0, 1] and all(m.combined.microphones == 1 for m in how["each"])
    for message in how["each"] + how["together"]:
        start = message.time * 48000 - 20000
        assert message.text == "again" and min(abs(start - at) for at in (0, 16000, 32000)) < 20
        assert 1 <= message.combined.frames <= 3 and message.combined.newest_snr_db == pytest.approx(-4, abs=2.5)
        assert message.snr_db == message.combined.snr_db and message.correlation == 0 and math.isnan(message.evm)
    [message] = how["together"]
    assert message.combined.microphones == 2 and message.combined.hearings > message.combined.frames
    for words, expected in (([], ""), (["--combine"], "microphones, SNR")):
        command = [sys.executable, "-m", "kosc", "listen", "-", *words]
        done = subprocess.run(command, input=sound.astype("<i2").tobytes(), capture_output=True)
        assert (done.returncode, done.stdout.decode().count("\n")) == ((0, 1) if words else (1, 0))
        assert expected in done.stdout.decode()


def test_frames_that_overlap_are_both_heard_where_a_crowd_is_expected():
    sound = recording(1, ("loud", 0, 24000, 0.3), ("faint", 0, 27840, 0.12), length=80000, noise=100)
    assert [m.text for m in kosc.listen(sound, channels=1)] == ["loud"]
    assert places(kosc.listen(sound, channels=1, crowd=True)) == [(24000, 0, "loud"), (27840, 0, "faint")]
    command = [sys.executable, "-m", "kosc", "listen", "-", "--channels", "1", "--crowd"]
    done = subprocess.run(command, input=sound.astype("<i2").tobytes(), capture_output=True)
    assert done.stdout.decode() == "0.500 s  ch 1  loud\n0.580 s  ch 1  faint\n"


def test_all_bands_carry_their_messages_at_the_same_moment_and_each_says_which_it_was():
    unnamed = kosc.find_band(9500)
    sound = sum(recording(1, (str(band), 0, 9000, 0.4 / len(kosc.BANDS)), band=band) for band in (*kosc.BANDS, unnamed))
    for choice, bands in (("near-ultrasonic", [kosc.DEFAULT_BAND]), ("all", kosc.BANDS), (9500, [unnamed]),
                          (["9500", *kosc.BANDS, kosc.BANDS[0].name], [unnamed, *kosc.BANDS])):
        heard = hear([sound], channels=1, band=choice)
        assert [(m.text, m.band, m.time) for m in heard] == [(str(band), band, 9000 / 48000) for band in bands], choice
    assert [m.band for m in kosc.listen(sound, channels=1)] == [kosc.DEFAULT_BAND]


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
                       raw, (sound.astype(">i2") for _ in "1"), sound / 32768, (sound / np.float32(32768),)):
            assert places(kosc.listen(source)) == expected, source
    cut = tmp_path / "cut.wav"
    for missing, heard in ((2001, expected), (40001, expected[:1])):  # a piece of the last frame, most of it
        cut.write_bytes(path.read_bytes()[:-missing])
        assert places(kosc.listen(cut)) == heard


@pytest.mark.parametrize("rate, kind", [
    (8000, "PCM_16"), (16000, "FLOAT"), (22050, "PCM_16"), (32000, "PCM_16"), (44100, "PCM_16"), (44100, "FLOAT"),
    (48000, "PCM_24"), (48000, "PCM_U8"), (96000, "PCM_32"), (192000, "PCM_16")])
def test_listens_to_files_of_any_usual_rate_and_width(tmp_path, rate, kind):
    soundfile, signal = pytest.importorskip("soundfile"), pytest.importorskip("scipy.signal")
    *_, band = (band for band in kosc.BANDS if band.high_hz < 0.492 * rate)
    starts = (1200, 48000, 163200 - kosc.FRAME_LENGTH)  # the last one ends with the recording
    sound = recording(2, *((b"%d" % start, 1, start, 0.3) for start in starts), length=163200, noise=20, band=band) / 32768
    path = tmp_path / "sound.wav"
    soundfile.write(path, signal.resample(sound, len(sound) * rate // 48000), rate, subtype=kind)
    heard = list(kosc.listen(path, band="all"))
    assert [(m.channel, m.text, m.band) for m in heard] == [(1, str(start), band) for start in starts]
    assert [m.time * 48000 for m in heard] == pytest.approx(starts, abs=1)
    assert all(m.snr_db > 30 or kind == "PCM_U8" for m in heard)  # up to the last subcarrier


@pytest.mark.parametrize("rate, tone, kept", [(44100, 20950, 1), (22050, 10550, 1), (96000, 20950, 1), (96000, 28000, 0), (88200, 30000, 0)])
def test_other_rates_keep_the_band_to_a_thousandth_and_aliases_out(rate, tone, kept):
    signal = pytest.importorskip("scipy.signal")
    given, wanted = (np.sin(2 * np.pi * tone * np.arange(second) / second)[:, np.newaxis] for second in (rate, 48000))
    pieces = list(resampled(signal, np.array_split(given, [1, 40000, 40001]), rate, 48000))
    result = np.concatenate(pieces)[:48000]
    np.testing.assert_allclose(result[200:-200], kept * wanted[200:-200], atol=1e-3)


def test_float_samples_are_the_same_sound_with_nan_as_silence():
    frame = kosc.encode("float")
    samples = kosc.encode("float", dtype="float32")
    np.testing.assert_array_equal(samples * 32768, frame)
    for at, value, taken in ((5000, np.nan, 0), (6000, np.inf, 32767), (7000, -2, -32768)):
        samples[at], frame[at] = value, taken
    assert hear([samples], channels=1) == hear([frame], channels=1) != []


def test_finds_a_frame_whose_first_samples_a_recording_lacks():
    frame = kosc.encode("cut")
    assert places(kosc.listen(frame[100:], channels=1)) == [(-100, 0, "cut")]
    assert places(hear([frame[1:]], channels=1, recording=True)) == [(-1, 0, "cut")]


def test_a_message_is_text_just_when_the_known_answers_say_so():
    for message, text in json.loads((VECTORS / "texts.json").read_text()):
        assert kosc.Message(0.0, 0, bytes.fromhex(message).ljust(28, b"\0"), 0.0, 0.0).text == text, message


def test_the_commands_write_and_read_files_and_streams(tmp_path):
    def run(*words, stdin=b""):
        done = subprocess.run([sys.executable, "-m", "kosc", *words], input=stdin, capture_output=True, cwd=tmp_path)
        return done.returncode, (done.stdout + done.stderr).decode()

    assert run("encode", "-", "-o", "one.wav", stdin="Grüße\n".encode()) == (0, "")
    assert run("encode", "a\nb", "-o", "two.wav", "--band", "6000") == (0, "")
    assert run("decode", "two.wav", "--band", "9000,6000")[1].endswith(f"000  [{kosc.find_band(6000)}]\n")
    assert [line.split()[0] for line in run("bands")[1].splitlines()] == [band.name for band in kosc.BANDS]
    assert run("encode", "both", "-o", "both.wav", "--band", "voice,6000") == (0, "")
    assert [run("decode", "both.wav", "--band", band)[1][:20] for band in ("voice", "6000")] == 2 * ["0.100 s  ch 1  both "]
    assert run("encode", "a\nb", "-o", "two.wav") == (0, "")
    assert run("decode", "one.wav") == (0, "0.100 s  ch 1  Grüße\n")
    code, text = run("decode", "one.wav", "none.wav", "two.wav")
    assert (code, text.splitlines()) == (2, ["one.wav: 0.100 s  ch 1  Grüße", "two.wav: 0.100 s  ch 1  610a62" + 50 * "0",
                                            "kosc: none.wav: No such file or directory"])
    raw = np.repeat(kosc.encode("both"), 2).astype("<i2").tobytes()
    assert run("listen", "-", stdin=raw[4:]) == (0, "0.000 s  ch 1  both\n0.000 s  ch 2  both\n")
    assert run("listen", "-", "--channels", "1", stdin=bytes(4000)) == (1, "")
    for words, reason in (("decode nowhere.wav", "nowhere.wav"), ("encode x --rounds 0 -o x.wav", "1 or more rounds"),
                          ("encode x -o /none/x.wav", "/none/x.wav"), ("encode x -o x.wav --band all", "overlap"), ("listen - --band x", "no band is called x"), ("listen - --channels 0", "1 to")):
        code, text = run(*words.split())
        assert code == 2 and text.startswith("kosc: ") and reason in text and text.count("\n") == 1
    assert not (tmp_path / "x.wav").exists()
