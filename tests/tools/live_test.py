"""The commands that work on sound devices, and the example that does, on virtual ones: `live_test.py <kosc>
<pulseaudio> <duplex>`.

A sound server of its own plays into null sinks, whose monitors are the microphones; it needs no sound card, and none
of the user's settings are touched.
"""

import array
import fcntl
import json
import os
import pty
import random
import re
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import wave
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

TIMEOUT = 120  # seconds after which something hangs
MESSAGES = [f"message number {number}" for number in range(1, 51)]
# Cables of their own, so that checks do not hear each other.
CABLES = ("talk", "probe", "pair", "file")


def devices_of_alsa() -> str:
    # PortAudio ends the process where there is no default device.
    return "pcm.default { type pulse }\n" + "".join(
                   f'pcm.{cable}-out {{ type pulse device {cable} hint.description "loudspeaker" }}\n'
                   f'pcm.{cable}-in {{ type pulse device {cable}.monitor hint.description "microphone" }}\n'
                   for cable in CABLES)


class Server:
    """A sound server with a runtime directory of its own."""

    def __init__(self, pulseaudio: str, folder: Path) -> None:
        socket = folder / "socket"
        (folder / "alsa.conf").write_text(devices_of_alsa())
        self.environment = {**os.environ, "HOME": str(folder), "XDG_RUNTIME_DIR": str(folder),
                            "PULSE_RUNTIME_PATH": str(folder / "run"), "PULSE_STATE_PATH": str(folder / "state"),
                            "PULSE_SERVER": f"unix:{socket}", "ALSA_CONFIG_PATH": str(folder / "alsa.conf")}
        sinks = [f"--load=module-null-sink sink_name={cable} rate=48000 channels=2" for cable in CABLES]
        # The converter that is on by default would cut off the band for listeners at 44.1 kHz.
        self.process = subprocess.Popen(
            [pulseaudio, "-n", "--daemonize=no", "--use-pid-file=no", "--exit-idle-time=-1", "--log-level=error",
             "--resample-method=speex-float-10", *sinks,
             f"--load=module-native-protocol-unix socket={socket} auth-anonymous=1"], env=self.environment)

    def start(self, *command: str, **streams) -> subprocess.Popen:
        return subprocess.Popen(command, env=self.environment, text=True, errors="surrogateescape", stderr=subprocess.PIPE, **streams)

    def run(self, *command: str, stdin=None, **variables: str) -> subprocess.CompletedProcess:
        return subprocess.run(command, env={**self.environment, **variables}, text=True, capture_output=True,
                              timeout=TIMEOUT, stdin=stdin)

    def wait_until_up(self, kosc: str) -> None:
        while self.process.poll() is None:
            listed = [json.loads(line) for line in self.run(kosc, "devices", "--json").stdout.splitlines()]
            if any(48000 in device["input_rates"] for device in listed):
                return
        raise SystemExit("the sound server does not start")


def parsed(lines: list[str]) -> list[tuple[int, str]]:
    """Channels and texts, whether from lines or from objects."""
    if lines and lines[0].startswith("{"):
        return [(each["channel"], each["text"]) for each in map(json.loads, lines)]
    found = [re.fullmatch(r"[0-9:]{8}\.[0-9]{3}  ch ([0-9])  (.*)\n", line) for line in lines]
    return [(int(each[1]), each[2]) for each in found]


class Listener:
    """A `kosc listen` in the background that listens by now, and what it has printed so far."""

    def __init__(self, server: Server, kosc: str, *options: str, cable: str = "talk") -> None:
        self.process = server.start(kosc, "listen", "--device", f"{cable}-in", *options, stdout=subprocess.PIPE)
        expect("what is listened to", re.sub("[0-9]+ Hz", "N Hz", self.process.stderr.readline()),
               f"kosc: listening on {cable}-in, N Hz, 2 channels\n")
        self.lines: list[str] = []
        self.ready = threading.Event()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def read(self) -> None:
        for line in self.process.stdout:
            self.lines.append(line)
            self.ready.set()

    def heard(self) -> list[tuple[int, str]]:
        return parsed(self.lines)

    def end(self) -> tuple[int, str]:
        code = self.process.wait(TIMEOUT)
        self.thread.join(TIMEOUT)
        return code, self.process.stderr.read()


class Screen:
    """A `kosc listen` on a terminal: what does not fit into a row goes on in the next one, unless that is switched off,
    and a carriage return goes to the start of the row. A line stays whole when the terminal changes its width."""

    def __init__(self, server: Server, kosc: str, columns: int, **variables: str) -> None:
        self.terminal, inner = pty.openpty()
        self.resize(columns)
        self.columns = self.next_columns = columns or int(variables["COLUMNS"])
        self.process = subprocess.Popen([kosc, "listen", "--device", "talk-in"], stdout=inner, stderr=inner,
                                        env={**server.environment, **variables})
        os.close(inner)
        self.lines, self.column, self.wraps = [""], 0, True
        self.levels = self.too_wide = 0 # meters seen, and those of them that did not fit
        self.ready = threading.Event()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def resize(self, columns: int) -> None:
        self.next_columns = columns # once what is under way for the old width is drawn
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 25, columns, 0, 0))

    def read(self) -> None:
        with open(self.terminal, encoding="utf-8", newline="") as output:
            sequence = ""
            try:
                while letter := output.read(1):
                    sequence += letter
                    if not re.fullmatch(r"\x1b(\[[?0-9]*)?", sequence):
                        self.show(sequence)
                        sequence = ""
            except OSError: # nobody has the other end open any more
                pass

    def show(self, part: str) -> None:
        line = self.lines[-1]
        if part == "\n":
            self.lines.append("")
            self.column = 0
        elif part == "\r":
            if "dB" in line:
                self.levels += 1
                self.too_wide += len(line) >= self.columns
            if line:
                self.ready.set()
            self.column -= self.column % self.columns
        elif part in ("\x1b[J", "\x1b[K"):
            self.lines[-1] = line[:self.column]
            self.columns = self.next_columns
        elif part in ("\x1b[?7l", "\x1b[?7h"):
            self.wraps = part[-1] == "h"
        elif self.wraps or self.column < self.columns:
            self.lines[-1] = line[:self.column] + part + line[self.column + 1:]
            self.column += 1


def expect(what: str, found: object, wanted: object) -> None:
    if found != wanted:
        sys.exit(f"{what}: {found!r} instead of {wanted!r}")


def expect_refusal(what: str, code: int, complaint: str, reason: str) -> None:
    """One sentence, the right one, and the exit code for it."""
    expect(f"{what}: exit code", code, 2)
    if not complaint.startswith("kosc: ") or complaint.count("\n") != 1 or reason not in complaint:
        sys.exit(f"{what}: {complaint!r} does not say {reason!r}")


def talk(server: Server, kosc: str) -> None:
    """All messages arrive, once, in their order, on both channels, at both rates, on terminals of any width; Ctrl-C
    ends by the signal and without a word."""
    screens = [Screen(server, kosc, columns) for columns in (20, 40, 80, 200)]
    screens += [Screen(server, kosc, 0, COLUMNS="40"), shrinking := Screen(server, kosc, 200)]
    listeners = [Listener(server, kosc, "--json"), Listener(server, kosc, "--json", "--rate", "44100", "--plain")]
    # Whoever does not read what it prints keeps it from decoding.
    lazy = server.start(kosc, "listen", "--device", "talk-in", "--json", stdout=subprocess.PIPE, pipesize=4096)
    leaving = server.start(kosc, "listen", "--device", "talk-in", stdout=subprocess.PIPE)
    leaving.stderr.readline()
    for screen in screens:
        screen.ready.wait(TIMEOUT)
    sender = server.start(kosc, "send", "-", "--device", "TALK-OUT", stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
    sender.stdin.write(MESSAGES[0] + "\n\r\n")
    sender.stdin.flush()
    leaving.stdout.readline()
    leaving.stdout.close()
    expect("end where nobody reads", (leaving.wait(TIMEOUT), leaving.stderr.read()), (-signal.SIGPIPE, ""))
    shrinking.resize(30)
    sender.stdin.write("\r\n".join(MESSAGES[1:]) + "\n\n\udcff")
    sender.stdin.close()
    expect_refusal("send of a long line", sender.wait(TIMEOUT), sender.stderr.read(),
                   f"line {len(MESSAGES) + 3} of standard input: the text is not UTF-8")
    lazy.send_signal(signal.SIGINT)
    lost = lazy.communicate(timeout=TIMEOUT)[1]
    expect("exit code with lost samples", lazy.returncode, -signal.SIGINT)
    if not re.search(r"kosc: in all [1-9]\d* samples lost", lost):
        sys.exit(f"lost samples are not reported: {lost!r}")
    for listener in listeners:
        listener.process.send_signal(signal.SIGINT)
        expect("listen's end", listener.end(), (-signal.SIGINT, ""))
        expect("messages", listener.heard(), [(channel, text) for text in MESSAGES for channel in (1, 2)])
    if any(json.loads(line)["second_look"] for line in listeners[0].lines):
        sys.exit("a second look at clean sound")
    for screen in screens:
        screen.process.send_signal(signal.SIGTERM)
        expect("end on a terminal", screen.process.wait(TIMEOUT), -signal.SIGTERM)
        screen.thread.join(TIMEOUT)
        expect(f"lines on {screen.columns} columns", [line[14:] for line in screen.lines],
               [f"ch 1  {text}" for text in MESSAGES] + [""])
        if screen.levels < len(MESSAGES) or screen.too_wide > (screen is shrinking):
            sys.exit(f"on {screen.columns} columns {screen.levels} meters, of which {screen.too_wide} do not fit")


# What two microphones hear: text, milliseconds at which its frame starts in each, and its amplitude there.
PAIR = (("left is near", (100, 103), (1.0, 0.5)), ("right is near", (500, 494), (0.5, 1.0)),
        ("again", (900, 919), (1.0, 0.5)), ("again", (1140, 1159), (1.0, 0.5)), # one frame behind the other
        ("left only", (1600, 0), (1.0, 0.0)), ("right only", (0, 1650), (0.0, 1.0)),
        ("turns", (2000, 0), (1.0, 0.0)), ("turns", (0, 2240), (0.0, 1.0)), ("more", (2600, 0), (1.0, 0.0)))
# The same at the same moment, in another band and channel.
ELSEWHERE = (("more", (0, 2604), (0.0, 1.0)),)
JOINED = [(1, "left is near"), (2, "right is near"), (1, "again"), (1, "again"), (1, "left only"), (2, "right only"),
          (1, "turns"), (2, "turns")]
BOTH_BANDS = [(channel, f"near-ultrasonic  {text}") for channel, text in JOINED + [(1, "more")]] + [(2, "voice  more")]
EACH = [(1, "left is near"), (2, "left is near"), (2, "right is near"), (1, "right is near")]


def sound_of_pair(server: Server, kosc: str, folder: Path) -> bytes:
    noise = random.Random(1)
    sound = array.array("h", (noise.randint(-3000, 3000) for _ in range(2 * 48 * 3500)))
    for text, starts, gains in PAIR + ELSEWHERE:
        band = ("--band", "voice") if (text, starts, gains) in ELSEWHERE else ()
        server.run(kosc, "encode", text, *band, "--pad", "0", "-o", str(folder / "frame.wav"))
        with wave.open(str(folder / "frame.wav")) as file:
            frame = array.array("h", file.readframes(file.getnframes()))
        for channel in (0, 1):
            for i, sample in enumerate(frame, 48 * starts[channel]):
                sound[2 * i + channel] += int(0.9 * gains[channel] * sample)
    return sound.tobytes()


def listen_to_pair(server: Server, kosc: str, folder: Path) -> None:
    """A message is one however many channels hear it, of which the better one is named; the recording has it all."""
    joined = [Listener(server, kosc, "--count", "8", *options, cable="pair") for options in ((), ("--plain",))]
    each = [Listener(server, kosc, "--count", "2", option, cable="pair") for option in ("--json", "--all-channels")]
    both = Listener(server, kosc, "--count", "10", "--band", "18000,voice", cable="pair")
    low = Listener(server, kosc, "--count", "1", "--band", "voice", "--rate", "16000", cable="pair")
    recorder = Listener(server, kosc, "--json", "--record", f"{folder}/record.wav", cable="pair")
    player = server.start("pacat", "--raw", "--rate=48000", "--channels=2", "--device=pair", stdin=subprocess.PIPE)
    player.stdin.buffer.write(sound_of_pair(server, kosc, folder))
    player.stdin.close()
    for listener, heard in ([(one, JOINED) for one in joined] + [(one, EACH) for one in each] +
                            [(both, BOTH_BANDS), (low, [(2, "more")])]):
        expect("end after so many messages", listener.end(), (0, ""))
        expect("what a pair hears", listener.heard(), heard)
    player.wait(TIMEOUT)
    recorder.process.send_signal(signal.SIGINT)
    expect("recorder's end", recorder.end(), (-signal.SIGINT, ""))
    expect("messages", len(recorder.lines), sum(map(bool, (gain for _, _, gains in PAIR for gain in gains))))
    decoded = server.run(kosc, "decode", "--json", f"{folder}/record.wav").stdout.splitlines(keepends=True)
    expect("what was recorded", parsed(decoded), recorder.heard())


class Terminal:
    """A terminal for a process's standard error, and what was shown on it."""

    def __init__(self, server: Server, *command: str) -> None:
        self.outer, inner = pty.openpty()
        self.process = subprocess.Popen(command, env=server.environment, text=True, stdout=subprocess.PIPE, stderr=inner)
        os.close(inner)
        self.shown = b""
        self.ready = threading.Event()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def read(self) -> None:
        try:
            while part := os.read(self.outer, 4096):
                self.shown += part
                self.ready.set()
        except OSError: # nobody has the other end open any more
            pass

    def end(self) -> str:
        output = self.process.communicate(timeout=TIMEOUT)[0]
        self.thread.join(TIMEOUT)
        expect("exit code", self.process.returncode, 0)
        if not re.search(rb"\[#+-+\] +\d+ %, \d+ bytes/s, 0:\d\d left", self.shown):
            sys.exit(f"no progress is shown: {self.shown!r}")
        return output


def carry_a_file(server: Server, kosc: str, folder: Path) -> None:
    """A picture arrives byte for byte, sealed, over six bands; both ends show on a terminal how far it is."""
    picture, key, inbox = folder / "picture.png", str(folder / "key"), folder / "inbox"
    picture.write_bytes(random.Random(2).randbytes(2048))
    inbox.mkdir()
    server.run(kosc, "key", key)
    options = ("--band", "wide", "--key", key, "--device")
    listener = Terminal(server, kosc, "listen", *options, "file-in", "--save", str(inbox), "--count", "1")
    listener.ready.wait(TIMEOUT)
    sender = Terminal(server, kosc, "send", *options, "file-out", "--file", str(picture))
    expect("what arrives", listener.end().split("  ", 3)[3],
           f"file picture.png, 2048 bytes, saved as {inbox}/picture.png  [sealed]\n")
    expect("what is sent", sender.end(), f"sent '{picture}', a transfer of 107 messages\n")
    expect("the picture", (inbox / "picture.png").read_bytes(), picture.read_bytes())


def main() -> None:
    kosc, pulseaudio, duplex = sys.argv[1:]
    with tempfile.TemporaryDirectory(prefix="kosc") as folder:
        server = Server(pulseaudio, Path(folder))
        try:
            server.wait_until_up(kosc)
            check = server.start(kosc, "check", "--json", "--input", "probe-in", "--output", "probe-out",
                                 stdout=subprocess.PIPE)
            listen_to_pair(server, kosc, Path(folder))
            with ThreadPoolExecutor() as pool: # beside each other, which keeps hardly a processor busy
                carried = pool.submit(carry_a_file, server, kosc, Path(folder))
                talk(server, kosc)
                carried.result()
            report = json.loads(check.communicate(timeout=TIMEOUT)[0])
            expect("check's verdict", (report["verdict"], report["cause"], report["frames_heard"]), ("good", "none", 6))

            both_ways = server.run(duplex, "both ways", "8", PULSE_SINK="probe", PULSE_SOURCE="probe.monitor")
            expect("duplex's end", both_ways.returncode, 0)
            expect("what duplex hears", {*both_ways.stdout.splitlines()},
                   {"channel 0: both ways", "channel 1: both ways"})
            silent = Listener(server, kosc, "--for", "0.5", cable="probe")
            expect("listening to nothing", (silent.end(), silent.lines), ((1, ""), []))
            lines = Path(folder) / "lines"
            lines.write_bytes(b"good\n\n\xff\n")
            for arguments, reason in (
                    (("listen", "--device", "nowhere"), "there is no input device 'nowhere'"),
                    (("listen", "--device", "-in"), "several devices"),
                    (("listen", "--for", "nan"), "--for: nan"),
                    (("listen", "--record", "-"), "--record takes a file"),
                    (("listen", "--device", "talk-in", "--record", f"{folder}/none/a.wav"), "No such file"),
                    (("listen", "--device", "talk-in", "--record", "/dev/full"), "must end in .wav or .flac"),
                    (("send", "-", "--device", "talk-out"), "line 3 of standard input: the text is not UTF-8")):
                with lines.open() as file:
                    refused = server.run(kosc, *arguments, stdin=file)
                expect_refusal(arguments, refused.returncode, refused.stderr, reason)
                expect(f"{arguments}: output", refused.stdout, "")
            orphan = Listener(server, kosc)
            sender, stopped = (server.start(kosc, "send", "still here", "--repeat", "1000", "--device", device,
                                            stdout=subprocess.PIPE) for device in ("talk-out", "probe-out"))
            orphan.ready.wait(TIMEOUT)
            stopped.stdout.readline()
            stopped.send_signal(signal.SIGINT)
            expect("send's end by Ctrl-C", (stopped.wait(TIMEOUT), stopped.stderr.read()), (-signal.SIGINT, ""))
        finally:
            server.process.kill()
            server.process.wait()
        expect_refusal("listen without its device", *orphan.end(), "device 'talk-in' has stopped")
        expect("heard before", orphan.heard()[0], (1, "still here"))
        expect_refusal("send without its device", sender.wait(TIMEOUT), sender.stderr.read(), "'talk-out' has stopped")
        refused = server.run(kosc, "check")
        expect_refusal("check without devices", refused.returncode, refused.stderr, "there is no input device")


main()
