"""The stages against known answers, against numpy, and undoing each other."""

import json
import logging
from pathlib import Path

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

import kosc
from kosc import core

VECTORS = Path(__file__).parents[3] / "tests" / "vectors"
RNG = np.random.default_rng(3)
NOISE = RNG.normal(size=1024) + 1j * RNG.normal(size=1024)


@pytest.mark.parametrize("name", ["frame_count", "frame_random1"])
def test_the_stages_make_the_known_frame_and_read_it(name):
    known = json.loads((VECTORS / f"{name}.json").read_text())
    bits, coded, punctured, interleaved = (np.array(list(known[key]), np.uint8)
                                           for key in ("bits", "coded", "punctured", "interleaved"))
    message, modem, code, puncture = bytes.fromhex(known["message"]), core.Modem(), core.ConvCode(), core.Puncture()
    crcs = b"".join(core.crc16(part).to_bytes(2, "big") for part in (message[:14], message[14:]))
    np.testing.assert_array_equal(core.byte2bin(message + crcs), bits)
    np.testing.assert_array_equal(code.encode(bits), coded)
    np.testing.assert_array_equal(puncture.punch(coded), punctured)
    np.testing.assert_array_equal(core.interleaver_encode(punctured), interleaved)

    rows = iter(modem.phase_pattern.shift(core.qpsk_mod(interleaved)).reshape(-1, modem.sc_num))
    symbols = []
    for i in range(modem.symbols):
        values = modem.pilot(i) if i in modem.pilots else next(rows)
        symbol = core.ofdm_mod_halfcomplex(core.ofdm_map_subcarries(values))
        symbols.append(core.fade(np.concatenate([symbol[-modem.cp_len:], symbol])))
    frame = np.concatenate(symbols)
    np.testing.assert_allclose(frame, modem.encode(message), atol=1e-12)
    assert (core.make_audio(frame).tobytes() == kosc.encode(message).tobytes() ==
            (VECTORS / f"{name}.s16").read_bytes())

    spectra = modem.spectra(frame)
    channel = spectra[modem.pilots[0]] / modem.pilot(modem.pilots[0])
    data = modem.phase_pattern.restore((np.delete(spectra, modem.pilots, axis=0) / channel).ravel())
    np.testing.assert_allclose(data, core.qpsk_mod(interleaved), atol=1e-9)
    received = puncture.depunch(core.interleaver_decode(core.qpsk_demod(data)))
    assert np.count_nonzero(received == core.HOLE) == 18
    assert core.bin2byte(code.decode(received)) == message + crcs
    assert modem.decode(frame) == message
    assert modem.decode(RNG.normal(size=modem.frame_length)) is None


@given(st.lists(st.integers(0, 3), min_size=1, max_size=30), st.integers(0, 1000))
def test_the_decoders_correct_what_is_far_apart(pairs, first):
    bits = np.array([[pair >> 1, pair & 1] for pair in pairs]).ravel()
    code, words = core.ConvCode(), core.encode82(bits)
    coded = code.encode(bits)
    coded[first % 40::40] ^= 1
    words[first % 4::4] ^= 1  # two of eight
    for decoded in code.decode(coded), code.decode_soft(2.0 * coded - 1), core.decode82(words):
        np.testing.assert_array_equal(decoded, bits)


def test_transforms_and_windows_equal_numpys():
    np.testing.assert_allclose(core.fft(NOISE), np.fft.fft(NOISE), atol=1e-10)
    np.testing.assert_allclose(core.ifft(core.fft(NOISE)), NOISE, atol=1e-12)
    np.testing.assert_allclose(core.dft_spread_mod(NOISE), np.fft.fft(NOISE, norm="ortho"), atol=1e-12)
    np.testing.assert_allclose(core.dft_spread_demod(core.dft_spread_mod(NOISE)), NOISE, atol=1e-12)
    np.testing.assert_allclose(core.ofdm_demod_real(NOISE.real), np.fft.fft(NOISE.real), atol=1e-10)
    np.testing.assert_allclose(core.blackman(160), np.blackman(160), atol=1e-12)
    np.testing.assert_allclose(core.zadoff_chu(3, 64), np.exp(-3j * np.pi * np.arange(64.0)**2 / 64), atol=1e-12)


def test_the_bandpass_keeps_its_state_and_passes_its_band():
    bandpass, whole = core.Bandpass(), core.Bandpass()(NOISE.real)
    blocks = np.concatenate([bandpass(NOISE.real[:100]), bandpass(NOISE.real[100:])])
    np.testing.assert_array_equal(blocks, whole)
    bandpass.reset()
    np.testing.assert_array_equal(bandpass(NOISE.real), whole)
    b, a = bandpass.coefficients
    z = np.exp(-2j * np.pi * np.array([10000, 17859.375, 19400, 21093.75]) / 48000)
    gain = np.abs(np.polyval(b[::-1], z) / np.polyval(a[::-1], z))
    np.testing.assert_allclose(gain, [0, np.sqrt(0.5), 1, np.sqrt(0.5)], atol=1e-3)


@pytest.mark.parametrize("band", [kosc.DEFAULT_BAND, kosc.find_band(6000)], ids=str)
def test_the_buffer_finds_frames_where_they_are(band):
    sound = np.zeros(60000, np.int16)
    for start in (5000, 16520, 40000):
        sound[start:start + kosc.FRAME_LENGTH] = kosc.encode(b"here", band=band) // 4
    buffer = core.SampleBuffer(sound, band)
    assert list(buffer.frame_starts()) == [5000, 16520, 40000]
    np.testing.assert_allclose(buffer.filtered, core.Bandpass(band.low_hz - 140.625, band.high_hz + 140.625)(sound), atol=1e-6)
    peaks = np.flatnonzero(buffer.correlation > 0.9)
    assert set(peaks // 10000) == {0, 1, 4} and buffer.correlation.max() <= 1.0
    message, quality = core.Modem(band).second_look(sound[5000:])
    assert (message, quality.decoded, quality.drift_ppm) == (b"here".ljust(28, b"\0"), True, 0.0)
    assert quality.snr_db > 35 and quality.coherence > 0.99


def test_the_librarys_log_goes_to_logging(caplog):
    with caplog.at_level(logging.WARNING, "kosc"), pytest.raises(kosc.KoscError, match="no bits"):
        core.ConvCode().encode([])
    assert [record.getMessage() for record in caplog.records] == ["Invalid input to encode."]
