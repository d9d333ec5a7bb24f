"""Wrong use ends in an exception with a sentence, never in a crash."""

import io
import os
import shutil
import subprocess
import sys
import wave
from pathlib import Path

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st
from hypothesis.extra import numpy as arrays

import kosc
from kosc import core

I16 = np.zeros((10, 2), np.int16)
VECTORS = Path(__file__).parents[3] / "tests" / "vectors"
MODEM, CODE, PUNCTURE = core.Modem(), core.ConvCode(), core.Puncture()


@pytest.fixture(scope="module")
def receiver():
    return kosc.Receiver(channels=2)


REFUSALS = [
    (lambda r: kosc.encode("ü" * 15), ValueError, "30 bytes; 28 are the most"),
    (lambda r: kosc.encode("\ud800"), ValueError, "surrogates not allowed"),
    (lambda r: kosc.encode("x", dtype="int32"), TypeError, "float32 or float64, not int32"),
    (lambda r: kosc.encode(28), TypeError, "must be bytes, not int"),
    (lambda r: kosc.encode(bytes(29)), ValueError, "29 bytes; 28 are the most"),
    (lambda r: kosc.encode("x", band="radio"), ValueError, "^no band is called radio; a band is .* in Hz$"),
    (lambda r: kosc.encode("x", band=kosc.BANDS), TypeError, "or one of kosc.BANDS, not tuple"),
    (lambda r: kosc.Receiver(band=[100]), ValueError, "does not lie between 250 and 23500 Hz"),
    (lambda r: kosc.Receiver(band=()), ValueError, "no band to listen on"),
    (lambda r: kosc.Receiver(combine="all"), ValueError, "each, together or None, not 'all'"),
    (lambda r: kosc.Receiver(second_look=False, crowd=True), ValueError, "crowd needs the second look"),
    (lambda r: core.Modem("all"), ValueError, "no band is called all"),
    (lambda r: kosc.transfer.Sender(""), ValueError, "0 bytes; 1 to 1048576"),
    (lambda r: kosc.transfer.Sender(bytes(1048577)), ValueError, "1048577 bytes"),
    (lambda r: kosc.transfer.Sender("x", name="x.txt"), TypeError, "contents are bytes, not str"),
    (lambda r: kosc.transfer.Sender(b"x", name="ü" * 128), ValueError, "up to 255 bytes, not 256"),
    (lambda r: kosc.transfer.Sender(b"x", key=b"short"), ValueError, "a key has 32 bytes, not 5"),
    (lambda r: kosc.transfer.Sender(b"x", nonce=-1), ValueError, "nonce must be 0 to 4294967295"),
    (lambda r: next(kosc.transfer.Sender(b"x").sound(band="all")), ValueError, "telephone and voice overlap"),
    (lambda r: kosc.transfer.encode_together(["x"] * 3, ["voice", "high"]), ValueError, "carry 1 to 2 messages"),
    (lambda r: kosc.transfer.Collector().take(b"x"), ValueError, "28 bytes, not 1"),
    (lambda r: kosc.transfer.Collector(bytes(32), window=-1), ValueError, "0 seconds or more, not -1"),
    (lambda r: kosc.transfer.Key.from_passphrase("\n"), ValueError, "1 to 1024 bytes, not 0"),
    (lambda r: kosc.transfer.Key.from_file(__file__), ValueError, "neither 32 bytes nor 64 hexadecimal digits"),
    (lambda r: r.push(I16 + 9000.0), ValueError, "samples reach 9000: .* between -1 and 1"),
    (lambda r: r.push(I16.astype(np.uint16)), TypeError, "must be int16, .*, not uint16"),
    (lambda r: r.push(None), TypeError, "must be int16, .*, not object"),
    (lambda r: r.push(I16[:, 0]), ValueError, r"shape \(n, 2\), not \(10,\)"),
    (lambda r: r.push(bytes(6)), ValueError, "6 bytes, which is no multiple of 4"),
    (lambda r: kosc.Receiver(channels=0), ValueError, "channels must be 1 to 64, not 0"),
    (lambda r: list(kosc.listen("/nowhere.wav")), FileNotFoundError, "/nowhere.wav"),
    (lambda r: list(kosc.listen("/")), IsADirectoryError, "'/'"),
    (lambda r: list(kosc.listen(io.StringIO("x"))), TypeError, "the stream is open in text mode"),
    (lambda r: list(kosc.listen(io.BytesIO(b"RIFF" + bytes(40)))), ValueError, "the stream is a WAV file: give its path"),
    (lambda r: list(kosc.listen(open(VECTORS / "desk.s16"))), TypeError, r"desk.s16 is open in text mode"),
    (lambda r: list(kosc.listen(5)), TypeError, "not iterable"),
    (lambda r: core.qpsk_mod([0, 2]), ValueError, "must be 0 or 1"),
    (lambda r: core.qpsk_mod([0.0, 1.0]), TypeError, "integers, not float64"),
    (lambda r: core.qpsk_mod([[0, 1]]), ValueError, "one dimension, not 2"),
    (lambda r: core.fft(np.zeros(12)), ValueError, "power of two values, not 12"),
    (lambda r: core.ofdm_map_subcarries(np.zeros(64), 1024, 448), ValueError, "do not fit"),
    (lambda r: core.interleaver_encode(np.zeros(10, int), 3), ValueError, "3 does not divide 10 bits"),
    (lambda r: core.encode82([1]), kosc.KoscError, "pairs"),
    (lambda r: core.ConvCode(7, [200]), ValueError, "each polynomial must be 1 to 127, not 200"),
    (lambda r: CODE.decode(np.zeros(20, int)), ValueError, "groups of 3"),
    (lambda r: core.ConvCode(16, [1, 2]).decode(np.zeros(10000, int)), kosc.KoscError, "cannot decode: .* memory 5000"),
    (lambda r: core.Puncture(10, 3), ValueError, "cannot be cut"),
    (lambda r: PUNCTURE.punch([1]), ValueError, "must be 786 bits, not 1"),
    (lambda r: core.PhasePattern([]), ValueError, "at least one angle"),
    (lambda r: core.Bandpass(20000, 18000), ValueError, "low below high"),
    (lambda r: core.zadoff_chu(1, -1), ValueError, "length must be 1"),
    (lambda r: MODEM.decode(np.zeros(11519)), ValueError, "11520 samples, not 11519"),
    (lambda r: MODEM.pilot(0), ValueError, "symbol 0 is no pilot"),
    (lambda r: core.SampleBuffer(np.zeros(0, np.int16)), ValueError, "number of samples must be 1"),
]


@pytest.mark.parametrize("call, error, text", REFUSALS, ids=[text for _, _, text in REFUSALS])
def test_refuses(receiver, call, error, text):
    with pytest.raises(error, match=text):
        call(receiver)


@pytest.mark.parametrize("contents, channels, packages, text", [
    (b"", None, True, " is empty"), ((1, 2, 48000, 0), None, True, " has no samples"),
    ((2, 2, 48000, 99), 1, True, " has 2 channels, not 1"), ((1, 2, 22050, 99), None, True,
     "22050 Hz, which holds sound up to 10849 Hz; the band near-ultrasonic reaches from 18000 to 20953 Hz"),
    ((1, 2, 44100, 99), None, False, "44100 Hz instead of 48000: this takes the package scipy, which is not installed"),
    ((1, 1, 48000, 99), None, False, r"\(it has 8 bits\): this takes the package soundfile, which is not installed"),
    (b"text", None, False, r"no WAV file of 16-bit samples \(.+\): this takes the package soundfile"),
    (b"text", None, True, "that soundfile reads: Format not recognised")])
def test_says_of_a_file_what_is_wrong_with_it(tmp_path, monkeypatch, contents, channels, packages, text):
    path = tmp_path / "sound.wav"
    if isinstance(contents, bytes):
        path.write_bytes(contents)
    else:
        with wave.open(str(path), "wb") as file:
            file.setparams((*contents, "NONE", ""))
            file.writeframes(bytes(contents[0] * contents[1] * contents[3]))
    if not packages:
        for name in ("soundfile", "scipy.signal"):
            monkeypatch.setitem(sys.modules, name, None)
    with pytest.raises(ValueError, match="sound.wav.*" + text):
        list(kosc.listen(path, channels))


def test_a_closed_receiver_refuses_and_closes_again():
    receiver = kosc.Receiver()
    receiver.finish()
    receiver.close()
    assert receiver.closed
    for use in (lambda: receiver.push(I16), receiver.finish, receiver.__enter__):
        with pytest.raises(ValueError, match="the receiver is closed"):
            use()


ANYTHING = st.one_of(
    arrays.arrays(arrays.scalar_dtypes(), arrays.array_shapes(min_dims=0, max_dims=2, min_side=0, max_side=40)),
    st.lists(st.sampled_from([0, 1, 255]), max_size=80), st.lists(st.floats(), max_size=80), st.none(), st.binary())
STEPS = [core.qpsk_mod, core.qpsk_demod, core.ofdm_map_subcarries, core.ofdm_mod_halfcomplex, core.ofdm_demod_real,
         core.fft, core.dft_spread_mod, core.crc16, core.byte2bin, core.bin2byte, core.encode82, core.decode82,
         core.fade, core.interleaver_encode, core.interleaver_decode, CODE.encode, CODE.decode, CODE.decode_soft,
         PUNCTURE.depunch, core.PhasePattern, MODEM.phase_pattern.shift, core.Bandpass(), core.make_audio,
         core.SampleBuffer, MODEM.decode, kosc.encode, lambda samples: kosc.Receiver().push(samples)]


@pytest.mark.parametrize("step", STEPS, ids=lambda step: getattr(step, "__name__", type(step).__name__))
@given(argument=ANYTHING)
def test_no_argument_crashes_a_step(step, argument):
    try:
        step(argument)
    except (TypeError, ValueError, kosc.KoscError) as error:
        assert len(str(error)) > 10


def load(folder, library=None):
    """What `import kosc` ends with in a process of its own."""
    environment = {**os.environ, "PYTHONPATH": str(folder)}
    environment.pop("KOSC_LIBRARY", None)
    if library is not None:
        environment["KOSC_LIBRARY"] = library
    command = [sys.executable, "-c", "import kosc; print(kosc._library.lib.path)"]
    result = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True)
    return result.returncode, (result.stdout + result.stderr).strip()


@pytest.mark.skipif(sys.platform != "linux", reason="names libraries as Linux does")
def test_says_where_it_looked_for_the_library(tmp_path):
    package = Path(shutil.copytree(Path(kosc.__file__).parent, tmp_path / "kosc"))
    status, text = load(tmp_path, "/nowhere/libkosc.so.1")
    assert status == 1 and "LibraryNotFoundError: cannot load libkosc" in text
    assert "KOSC_LIBRARY: /nowhere/libkosc.so.1" in text and "beside" not in text
    status, text = load(tmp_path, "libm.so.6")
    assert status == 1 and "libm.so.6 has no function soundcomm_set_log_callback: it is older" in text
    beside = package / "libkosc.so.1"
    beside.write_bytes(b"no library")
    status, text = load(tmp_path)
    assert f"beside the package: {beside}" in text
    beside.write_bytes(Path(kosc._library.lib.path).read_bytes())
    assert load(tmp_path) == (0, str(beside))
