"""Files and long text: payloads into sound, through loss and strangers, and back."""

import json
import random
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest

import kosc
from kosc.sealing import Opener, seal
from kosc.transfer import BYTES, FILE, TEXT, Collector, Key, Payload, Sender, encode_together, safe_name

VECTORS = json.loads((Path(__file__).parents[3] / "tests" / "vectors" / "transfer.json").read_text())
NAMES = Path(__file__).parents[2] / "test" / "file_names.json"
KEY = bytes(range(32))


def collected(messages, collector=None):
    collector = collector or Collector()
    return [event for event in map(collector.take, messages) if event.state not in ("progress", "repeated")]


def known(length):
    return bytes((i * i + 7 * i) % 256 for i in range(length))


@pytest.mark.parametrize("transfer", VECTORS["transfers"], ids=lambda transfer: transfer["name"])
def test_sends_and_takes_the_known_messages(transfer):
    data, messages = known(transfer["length"]), [bytes.fromhex(each["hex"]) for each in transfer["messages"]]
    if transfer["kind"] == BYTES:
        sender = Sender(data, nonce=transfer["nonce"])
        assert [sender.message(each["index"]) for each in transfer["messages"]] == messages
        assert (sender.needed, sender.round) == (transfer["needed"], -(-transfer["needed"] * 3 // 2) + 4)
    collector = Collector()
    events = [collector.take(message) for message in messages]
    assert {(event.id, event.needed) for event in events} == {(transfer["id"], transfer["needed"])}
    finished = [event.payload for event in events if event.state == "finished"]
    assert all(payload == Payload(transfer["kind"], data) and payload.text is None for payload in finished)
    assert bool(finished) == (transfer["needed"] < 4)


@pytest.mark.parametrize("sealed", VECTORS["sealed"], ids=lambda sealed: sealed["name"])
def test_seals_and_opens_the_known_payloads(sealed):
    pytest.importorskip("nacl")
    key, payload, content = (bytes.fromhex(sealed[name]) for name in ("key", "payload", "content"))
    if "passphrase" in sealed:
        assert bytes(Key.from_passphrase(sealed["passphrase"] + "\n")) == key
    assert seal(content, sealed["kind"], key, sealed["time"], bytes.fromhex(sealed["nonce"])) == payload
    opener = Opener(key, window=60, clock=lambda: sealed["time"] - 60)
    assert opener.open(payload, sealed["kind"] + 128) == (content, sealed["time"])
    for changed, kind, window, reason in (
            (payload, sealed["kind"] + 129, None, "something else"), (payload[:-1], sealed["kind"] + 128, None, "forged|short"),
            (payload, sealed["kind"] + 128, 59, "60 s from now"), (payload[:48], sealed["kind"] + 128, None, "short")):
        with pytest.raises(ValueError, match=reason):
            Opener(key, window, lambda: sealed["time"] - 60).open(changed, kind)
    with pytest.raises(ValueError, match="taken before"):
        opener.open(payload, sealed["kind"] + 128)


def test_a_file_and_a_text_come_through_sound_with_losses_a_late_start_and_each_other():
    chance = random.Random(17)
    data = chance.randbytes(1500)
    file, text = Sender(data, "Bild 1.png"), Sender("Grüße, länger als eine Nachricht.\n" * 20)
    for bands, gap in ((["near-ultrasonic"], 0.02), ("wide", 0.0)):
        # The file's sender was long on the air; then a text begins, so that some of their frames collide.
        blocks = list(file.sound(2, start=1000, band=bands, gap=gap))
        sound = np.concatenate([block * (chance.random() > 0.2) for block in blocks]).astype(np.int32)
        other = np.concatenate(list(text.sound(2, band=bands, gap=gap)))
        start = chance.randrange(30000)
        sound[start:start + other.size] += np.where(np.arange(other.size) // 60000 % 3 == 0, other, 0)[:sound.size - start]
        plain = kosc.encode("plain", band=bands[0] if gap else "voice")
        sound = np.concatenate((sound[5000:], plain, np.concatenate(list(text.sound(2, start=90, band=bands, gap=gap)))))
        heard = kosc.listen((sound // 2).astype(np.int16), channels=1, band=bands)
        events = collected(heard)
        assert {event.state for event in events} == {"finished", "plain"}
        payloads = {event.payload for event in events if event.payload}
        assert payloads == {Payload(FILE, data, "Bild 1.png"), Payload(TEXT, ("Grüße, länger als eine Nachricht.\n" * 20).encode())}


def test_six_bands_carry_six_messages_in_a_frame_that_reaches_full_scale():
    texts = [str(band) for band in kosc.WIDE_BANDS]
    frame = encode_together(texts, "wide")
    assert frame.size == kosc.FRAME_LENGTH and np.abs(frame).max() == 32767
    assert [m.text for m in kosc.listen(frame, channels=1, band="wide")] == texts
    np.testing.assert_array_equal(encode_together(texts, "wide", "float64") * 32768, frame)
    np.testing.assert_array_equal(encode_together(["one"], "wide"), kosc.encode("one", band="voice"))


def test_with_a_key_nothing_else_is_given_out_and_nothing_twice():
    pytest.importorskip("nacl")
    sealed, plain = Sender(b"secret", "s.txt", KEY), Sender("long " * 20)
    late = Collector(KEY, clock=lambda: 0.0)
    small = Collector(most_bytes=50)
    for collector, sender, expected in (
            (Collector(Key(KEY)), sealed, ["finished"]), (Collector(), sealed, "it is sealed, and there is no key"),
            (Collector(bytes(32)), sealed, "another key sealed it, or it was forged"), (Collector(KEY), plain, "it is not sealed"),
            (late, sealed, "s from now; 3600 s are allowed"), (small, sealed, "it is longer than is allowed")):
        events = collected(sender.messages(1), collector)
        if isinstance(expected, str):
            assert all(event.state == "refused" and expected in event.reason for event in events) and events
        else:
            assert [(event.state, event.payload.data, event.payload.name) for event in events] == [("finished", b"secret", "s.txt")]
            assert abs(events[0].payload.sealed_at - time.time()) < 60
    assert collected([kosc.modem.padded("anybody")], Collector(KEY))[0].state == "refused"
    # Played back by somebody who records it, as another transfer.
    opened = Opener(KEY)
    payload = seal(b"once", TEXT, KEY)
    opened.open(payload, TEXT + 128)
    with pytest.raises(ValueError, match="taken before"):
        opened.open(payload, TEXT + 128)


def test_no_name_that_is_sent_leads_out_of_the_folder_or_over_a_file(tmp_path):
    long = [("ü" * 300 + ".jpeg", "ü" * 97 + ".jpeg"), ("x." + "y" * 300, "x." + "y" * 198), ("\udc80", "_")]
    for sent, safe in json.loads(NAMES.read_text()) + long:
        assert safe_name(sent) == safe, sent
        assert Payload(FILE, b"1", sent).save(tmp_path).parent == tmp_path
    target = tmp_path / "target"
    target.write_bytes(b"mine")
    (tmp_path / "link.txt").symlink_to(target)
    for overwrite, name in ((False, "link-2.txt"), (False, "link-3.txt"), (True, "link.txt")):
        assert Payload(FILE, b"theirs", "link.txt").save(tmp_path, overwrite) == tmp_path / name
    assert target.read_bytes() == b"mine" and (tmp_path / "link.txt").read_bytes() == b"theirs"


def test_the_commands_carry_files_and_long_texts_sealed_or_not(tmp_path):
    def run(*words):
        done = subprocess.run([sys.executable, "-m", "kosc", *words], capture_output=True, cwd=tmp_path)
        return done.returncode, done.stdout.decode(), done.stderr.decode()

    text = "A text \x1b that is longer than one message.\n\tAnd has two lines."
    shown = text.replace("\x1b", "\ufffd").replace("\n", "\n    ")
    (tmp_path / "in.bin").write_bytes(bytes(100))
    (tmp_path / "key").write_text(KEY.hex() + "\n")
    (tmp_path / "phrase").write_text("some words\r\n")
    assert run("encode", text, "-o", "text.wav", "--band", "wide", "--rounds", "2") == (0, "", "")
    assert run("decode", "text.wav", "--band", "wide") == (0, f"0.100 s  ch 1  {shown}  [{kosc.WIDE_BANDS[3]}]\n", "")
    assert run("encode", "--file", "in.bin", "-o", "file.wav", "--gap", "10") == (0, "", "")
    assert run("decode", "file.wav")[1].endswith("file in.bin, 100 bytes, not saved: --save FOLDER does that\n")
    code, shown, _ = run("decode", "file.wav", "--save", ".")
    assert code == 0 and shown.endswith("saved as in-2.bin\n") and (tmp_path / "in-2.bin").read_bytes() == bytes(100)
    (tmp_path / "cut.wav").write_bytes((tmp_path / "file.wav").read_bytes()[:80000])
    assert run("decode", "cut.wav") == (1, "", "kosc: a transfer is not whole: 3 of 6 messages came\n")
    pytest.importorskip("nacl")
    for option, file in (("--key", "key"), ("--passphrase-file", "phrase")):
        assert run("encode", "short", "-o", "sealed.wav", option, file) == (0, "", "")
        assert run("decode", "sealed.wav", option, file)[:2] == (0, "0.820 s  ch 1  short\n")
        assert run("decode", "sealed.wav") == (1, "", "kosc: refused: it is sealed, and there is no key\n")
    assert run("decode", "file.wav", "--key", "key") == (1, "", "kosc: refused: it is not sealed\n")
    assert run("decode", "file.wav", "--key", "in.bin")[2].startswith("kosc: in.bin has no key")
