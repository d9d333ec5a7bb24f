"""The commands that work on sound devices, and the example that does, on virtual ones: `live_check.py <kosc>
<pulseaudio> <duplex>`.

A sound server of its own plays into null sinks, whose monitors are the microphones; it needs no sound card, and none
of the user's settings are touched.
"""

import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

TIMEOUT = 120  # seconds after which something hangs
MESSAGES = [f"message number {number}" for number in range(1, 51)]
# Two cables, so that two checks do not hear each other.
CABLES = ("talk", "probe")


def devices_of_alsa() -> str:
    # PortAudio ends the process where there is no default device.
    return "pcm.default { type pulse }\n" + "".join(f'pcm.{cable}-out {{ type pulse device {cable} hint.description "loudspeaker" }}\n'
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
        return subprocess.Popen(command, env=self.environment, text=True, stderr=subprocess.PIPE, **streams)

    def run(self, *command: str, **defaults: str) -> subprocess.CompletedProcess:
        return subprocess.run(command, env={**self.environment, **defaults}, text=True, capture_output=True,
                              timeout=TIMEOUT)

    def wait_until_up(self, kosc: str) -> None:
        while self.process.poll() is None:
            listed = [json.loads(line) for line in self.run(kosc, "devices", "--json").stdout.splitlines()]
            if any(48000 in device["input_rates"] for device in listed):
                return
        raise SystemExit("the sound server does not start")


class Listener:
    """A `kosc listen` in the background, and what it has printed so far."""

    def __init__(self, server: Server, kosc: str, *options: str) -> None:
        self.process = server.start(kosc, "listen", "--device", "talk-in", "--json", *options, stdout=subprocess.PIPE)
        self.heard: list[dict] = []
        self.ready = threading.Event()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def read(self) -> None:
        for line in self.process.stdout:
            self.heard.append(json.loads(line))
            self.ready.set()

    def texts(self, channel: int) -> list[str]:
        return [each["text"] for each in self.heard if each["channel"] == channel and each["text"] != "ready?"]

    def end(self) -> tuple[int, str]:
        self.thread.join(TIMEOUT)
        return self.process.wait(TIMEOUT), self.process.stderr.read()


def expect(what: str, found: object, wanted: object) -> None:
    if found != wanted:
        sys.exit(f"{what}: {found!r} instead of {wanted!r}")


def expect_refusal(what: str, code: int, complaint: str, reason: str) -> None:
    """One sentence, the right one, and the exit code for it."""
    expect(f"{what}: exit code", code, 2)
    if not complaint.startswith("kosc: ") or complaint.count("\n") != 1 or reason not in complaint:
        sys.exit(f"{what}: {complaint!r} does not say {reason!r}")


def talk(server: Server, kosc: str) -> None:
    """All messages arrive, once, in their order, on both channels, at both rates; Ctrl-C ends without a word."""
    listeners = [Listener(server, kosc), Listener(server, kosc, "--rate", "44100", "--plain")]
    # Whoever does not read what it prints keeps it from decoding.
    lazy = server.start(kosc, "listen", "--device", "talk-in", "--json", stdout=subprocess.PIPE, pipesize=4096)
    leaving = server.start(kosc, "listen", "--device", "talk-in", stdout=subprocess.PIPE)
    sender = server.start(kosc, "send", "-", "--device", "TALK-OUT", stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
    while not all(listener.ready.wait(0.4) for listener in listeners):
        sender.stdin.write("ready?\n")
        sender.stdin.flush()
    leaving.stdout.readline()
    leaving.stdout.close()
    sender.stdin.write("\n".join(MESSAGES))
    sender.stdin.close()
    expect("send's exit code", sender.wait(TIMEOUT), 0)
    lazy.send_signal(signal.SIGINT)
    lost = lazy.communicate(timeout=TIMEOUT)[1]
    expect("exit code with lost samples", lazy.returncode, 0)
    if not re.search(r"kosc: in all [1-9]\d* samples lost", lost):
        sys.exit(f"lost samples are not reported: {lost!r}")
    for listener in listeners:
        listener.process.send_signal(signal.SIGINT)
        expect("listen's end", listener.end(), (0, ""))
        for channel in (1, 2):
            expect(f"messages on channel {channel}", listener.texts(channel), MESSAGES)
    expect("second looks at clean sound", any(message["second_look"] for message in listeners[0].heard), False)
    expect_refusal("closed pipe", leaving.wait(TIMEOUT), leaving.stderr.read(), "cannot write to standard output")


def main() -> None:
    kosc, pulseaudio, duplex = sys.argv[1:]
    with tempfile.TemporaryDirectory(prefix="kosc") as folder:
        server = Server(pulseaudio, Path(folder))
        try:
            server.wait_until_up(kosc)
            check = server.start(kosc, "check", "--json", "--input", "probe-in", "--output", "probe-out",
                                 stdout=subprocess.PIPE)
            talk(server, kosc)
            report = json.loads(check.communicate(timeout=TIMEOUT)[0])
            expect("check's verdict", (report["verdict"], report["cause"], report["frames_heard"]), ("good", "none", 6))

            both_ways = server.run(duplex, "both ways", "8", PULSE_SINK="probe", PULSE_SOURCE="probe.monitor")
            expect("duplex's end", both_ways.returncode, 0)
            expect("what duplex hears", {*both_ways.stdout.splitlines()},
                   {"channel 0: both ways", "channel 1: both ways"})
            silent = server.run(kosc, "listen", "--device", "probe-in", "--for", "0.5")
            expect("listening to nothing", (silent.returncode, silent.stdout, silent.stderr), (1, "", ""))
            for device, reason in (("nowhere", "there is no input device 'nowhere'"), ("-in", "several devices")):
                refused = server.run(kosc, "listen", "--device", device)
                expect_refusal(device, refused.returncode, refused.stderr, reason)
            orphan = Listener(server, kosc)
            sender = server.start(kosc, "send", "still here", "--repeat", "1000", "--device", "talk-out",
                                  stdout=subprocess.DEVNULL)
            orphan.ready.wait(TIMEOUT)
        finally:
            server.process.kill()
            server.process.wait()
        expect_refusal("listen without its device", *orphan.end(), "device 'talk-in' has stopped")
        expect("heard before", orphan.heard[0]["text"], "still here")
        expect_refusal("send without its device", sender.wait(TIMEOUT), sender.stderr.read(), "'talk-out' has stopped")
        refused = server.run(kosc, "check")
        expect_refusal("check without devices", refused.returncode, refused.stderr, "there is no input device")


main()
