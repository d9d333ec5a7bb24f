"""What the commands print of messages, and of the texts and files that come in them."""

from __future__ import annotations

import argparse
import re
import sys
from typing import Iterable, Optional, TextIO

import kosc
from kosc.transfer import Collector, Event, Key, Payload

NO_MESSAGE = 1
CONTENT_BYTES = 20  # of a payload in a message
INDENTED = "\n    "  # so that no line of a text looks like a message
FRAME_SECONDS = kosc.FRAME_LENGTH / kosc.SAMPLE_RATE
OBEYED = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]")  # by terminals; not tab and line end


def add_key_options(command: argparse.ArgumentParser, what: str) -> None:
    either = command.add_mutually_exclusive_group()
    either.add_argument("--key", metavar="FILE", help=f"{what} with the key in FILE: 32 bytes, or 64 hexadecimal digits")
    either.add_argument("--passphrase-file", metavar="FILE", help="the same with the pass phrase in FILE")


def key_of(arguments: argparse.Namespace) -> Optional[Key]:
    if arguments.key is not None:
        return Key.from_file(arguments.key)
    if arguments.passphrase_file is not None:
        with open(arguments.passphrase_file, "rb") as file:
            return Key.from_passphrase(file.read())
    return None


class Progress:
    """A line on a terminal: share, rate and time left of the transfer that went on last."""

    def __init__(self, stream: TextIO = sys.stderr) -> None:
        self._stream = stream if stream.isatty() else None
        self._begun: dict[tuple[int, int], tuple[float, int]] = {}

    def tell(self, transfer: tuple[int, int], done: int, needed: int, now: float) -> None:
        start, before = self._begun.setdefault(transfer, (now, done - 1))
        if self._stream is None:
            return
        line = f"{100 * done // needed} %"
        if now > start:
            rate = (done - before) / (now + FRAME_SECONDS - start)
            left = round((needed - done) / rate)
            line += f", {rate * CONTENT_BYTES:.0f} bytes/s, {left // 60}:{left % 60:02} left"
        self._stream.write(f"\r{line}\x1b[K")
        self._stream.flush()

    def clear(self) -> None:
        if self._stream is not None:
            self._stream.write("\r\x1b[K")
            self._stream.flush()


class Display:
    """Prints messages as the command kosc does, and saves files where that is asked for."""

    def __init__(self, arguments: argparse.Namespace, key: Optional[Key], window: Optional[float]) -> None:
        self._folder, self._overwrite = arguments.save, arguments.force
        self._progress = Progress()
        self._unfinished: dict[tuple[int, int], Event] = {}
        self._refused: Optional[tuple[tuple[int, int], str]] = None
        self._collector: Optional[Collector] = None
        try:
            self._collector = Collector(key, window)
        except kosc.LibraryNotFoundError:
            if key is not None or self._folder is not None:
                raise
            # every message is shown as it comes

    def show(self, messages: Iterable[kosc.Message], before: str = "") -> int:
        status = NO_MESSAGE
        for message in messages:
            event = Event("plain") if self._collector is None else self._collector.take(message)
            shown = self._take(message, event)
            if shown is not None:
                status = 0
                print(before + self._line(message, shown), flush=True)
        self._progress.clear()
        for event in self._unfinished.values():
            print(f"kosc: {before}a transfer is not whole: {event.held} of {event.needed} messages came", file=sys.stderr)
        self._unfinished.clear()
        return status

    def _take(self, message: kosc.Message, event: Event) -> Optional[str]:
        transfer = (event.id, event.needed)
        if event.state == "plain":
            self._progress.clear()
            return message.data.hex() if message.text is None else message.text
        if event.state == "progress":
            self._unfinished[transfer] = event
            self._progress.tell(transfer, event.held, event.needed, message.time)
        elif event.state != "repeated":
            self._unfinished.pop(transfer, None)
            self._progress.clear()
        if event.state in ("refused", "mismatch"):
            self._refuse(transfer, event.reason or "what came does not fit together")
        return None if event.payload is None else self._told(event.payload)

    def _refuse(self, transfer: tuple[int, int], reason: str) -> None:
        if self._refused != (transfer, reason):  # each of its messages is
            print(f"kosc: refused: {reason}", file=sys.stderr)
        self._refused = (transfer, reason)

    def _told(self, payload: Payload) -> str:
        if payload.text is not None:
            return OBEYED.sub("\ufffd", payload.text).replace("\n", INDENTED)
        name = OBEYED.sub("\ufffd", payload.name).replace("\n", "\ufffd") or "without a name"
        place = "not saved: --save FOLDER does that" if self._folder is None else (
            f"saved as {payload.save(self._folder, self._overwrite)}")
        return f"file {name}, {len(payload.data)} bytes, {place}"

    @staticmethod
    def _line(message: kosc.Message, shown: str) -> str:
        look = "  [second look]" if message.second_look_needed else ""
        if message.combined is not None:
            look = f"  [{Display._origin(message.combined)}]"
        start = round(message.time, 3) + 0.0  # no minus before zero
        band = "" if message.band == kosc.DEFAULT_BAND else f"  [{message.band}]"
        return f"{start:.3f} s  ch {message.channel + 1}  {shown}{look}{band}"

    @staticmethod
    def _origin(combined: kosc.Combined) -> str:
        frames, microphones = (f"{count} {thing}{'s' * (count > 1)}" for count, thing in (
            (combined.frames, "frame"), (combined.microphones, "microphone")))
        return f"put together from {frames}, {microphones}, SNR {combined.snr_db:.1f} dB"
