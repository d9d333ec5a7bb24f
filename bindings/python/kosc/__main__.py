"""python -m kosc: messages into sound files, and out of files, streams and the microphone."""

from __future__ import annotations

import argparse
import itertools
import signal
import sys
import wave
from typing import Any, Callable, Iterable, Iterator, Union

import kosc
from kosc._bands import bands_apart
from kosc._showing import Display, add_key_options, key_of
from kosc.sealing import WINDOW
from kosc.transfer import Sender, encode_together

WRONG_USE = 2
SAMPLE_BYTES = 2
MOST_GAP = 60000  # milliseconds
SILENCE = kosc.SAMPLE_RATE // 10  # samples on both sides of a frame
BLOCK = 4096


def parser() -> argparse.ArgumentParser:
    commands = argparse.ArgumentParser(prog="python -m kosc", description="Short messages as sound, and back.")
    commands.add_argument("--version", action="version", version=kosc.__version__)
    choice = commands.add_subparsers(dest="command", required=True, metavar="COMMAND")
    encode = choice.add_parser("encode", help="write a message, a long text or a file into a WAV file")
    content = encode.add_mutually_exclusive_group(required=True)
    content.add_argument("text", nargs="?", help=f"the message; over {kosc.MESSAGE_LENGTH} bytes of UTF-8 it goes out as "
                         "several; - for standard input")
    content.add_argument("--file", metavar="FILE", help="sends the file with its name")
    encode.add_argument("--rounds", type=int, default=1, metavar="N", help="of what goes out as several messages: one "
                        "bears the loss of every fifth, two of every second; 1 unless given")
    encode.add_argument("--gap", type=int, default=0, metavar="MS", help="milliseconds of silence between those; 0 unless "
                        "given, 200 for calls")
    encode.add_argument("--band", type=several, default=kosc.DEFAULT_BAND, metavar="NAME|HZ", help="as bands lists them, "
                        f"or where it begins in Hz; {kosc.DEFAULT_BAND} unless given; for several messages also several "
                        "with commas between, or wide, six side by side")
    add_key_options(encode, "seal what is sent")
    encode.add_argument("-o", "--output", required=True, metavar="FILE")
    decode = choice.add_parser("decode", help="print the messages in sound files")
    decode.add_argument("files", nargs="+", metavar="FILE")
    listen = choice.add_parser("listen", help="print messages as they are heard")
    listen.add_argument("source", nargs="?", choices=["-"], help="standard input, raw 16-bit samples; else the "
                        "microphone, which takes the package pyaudio")
    listen.add_argument("--channels", type=int, help="1 for the microphone unless given, 2 for standard input")
    for receiving in (decode, listen):
        receiving.add_argument("--band", type=several, default=kosc.DEFAULT_BAND, metavar="NAME|HZ",
                               help="where to listen: as for encode, or several with commas between, wide, or all")
        receiving.add_argument("--combine", action="store_const", const="together", help="add up the repeats of a message "
                               "that are too weak alone, and two channels; messages that differ in little may be mixed")
        receiving.add_argument("--crowd", action="store_true", help="hear frames of many senders that overlap")
        receiving.add_argument("--save", metavar="FOLDER", help="save the files that come, under safe names")
        receiving.add_argument("--force", action="store_true", help="overwrite files there; else a number is added")
        add_key_options(receiving, "open what was sealed, and take nothing else, ")
    choice.add_parser("bands", help="list the bands that have a name")
    return commands


def several(text: str) -> Union[str, list[str]]:
    return text if text in ("all", "wide") else text.split(",")


def encode(arguments: argparse.Namespace) -> int:
    sound = iter(encoded(arguments))
    first = next(sound)  # what is refused leaves no file
    with open(arguments.output, "wb") as output, wave.open(output, "wb") as file:
        file.setparams((1, SAMPLE_BYTES, kosc.SAMPLE_RATE, 0, "NONE", "not compressed"))
        file.writeframes(bytes(SILENCE * SAMPLE_BYTES))
        for block in itertools.chain([first], sound):
            file.writeframes(block.astype("<i2").tobytes())
        file.writeframes(bytes(SILENCE * SAMPLE_BYTES))
    return 0


def encoded(arguments: argparse.Namespace) -> Iterable[Any]:
    """Blocks of sound: a frame for what fits into a message, else a transfer."""
    key, band = key_of(arguments), arguments.band
    if arguments.rounds < 1:
        raise ValueError(f"there are 1 or more rounds, not {arguments.rounds}")
    if not 0 <= arguments.gap <= MOST_GAP:
        raise ValueError(f"a gap has 0 to {MOST_GAP} milliseconds, not {arguments.gap}")
    how = {"rounds": arguments.rounds, "band": band, "gap": arguments.gap / 1000}
    if arguments.file is not None:
        return Sender.from_file(arguments.file, key).sound(**how)
    text = sys.stdin.read().rstrip("\r\n") if arguments.text == "-" else arguments.text
    if key is None and len(text.encode()) <= kosc.MESSAGE_LENGTH:
        bands = bands_apart(band)
        return [encode_together([text] * len(bands), bands)]
    return Sender(text, key=key).sound(**how)


def reception(arguments: argparse.Namespace) -> dict[str, Any]:
    """A receiver's options."""
    return {name: getattr(arguments, name) for name in ("band", "combine", "crowd")}


def decode(arguments: argparse.Namespace) -> int:
    many, key = len(arguments.files) > 1, key_of(arguments)
    how = reception(arguments)
    return max(guarded(Display(arguments, key, window=None).show, kosc.listen(file, **how),
                       f"{file}: " if many else "") for file in arguments.files)


def listen(arguments: argparse.Namespace) -> int:
    display = Display(arguments, key_of(arguments), WINDOW)
    if arguments.source is not None:
        return display.show(kosc.listen(sys.stdin.buffer, arguments.channels, **reception(arguments)))
    channels = 1 if arguments.channels is None else arguments.channels
    return display.show(hear_microphone(channels, reception(arguments)))


def bands(_: argparse.Namespace) -> int:
    for band in kosc.BANDS:
        print(f"{band.name:16} {band.low_hz:5.0f} to {band.high_hz:5.0f} Hz  {band.use}")
    return 0


def hear_microphone(channels: int, how: dict[str, Any]) -> Iterator[kosc.Message]:
    try:
        import pyaudio
    except ImportError:
        raise ValueError("listening to the microphone takes the package pyaudio, which is not installed") from None
    with kosc.Receiver(channels, **how) as receiver:
        portaudio = pyaudio.PyAudio()
        try:
            stream = portaudio.open(kosc.SAMPLE_RATE, channels, pyaudio.paInt16, input=True, frames_per_buffer=BLOCK)
            print(f"listening, {kosc.SAMPLE_RATE} Hz, channels: {channels}", file=sys.stderr)
            while True:
                yield from receiver.push(stream.read(BLOCK, exception_on_overflow=False))
        except OSError as error:
            raise OSError(f"the microphone cannot be used: {error}") from None
        finally:
            portaudio.terminate()


def guarded(action: Callable[..., int], *arguments: Any) -> int:
    """The action's exit status, or a sentence and that of wrong use."""
    try:
        return action(*arguments)
    except (OSError, ValueError, kosc.KoscError, kosc.LibraryNotFoundError) as error:
        named = isinstance(error, OSError) and error.filename is not None
        print(f"kosc: {error.filename}: {error.strerror}" if named else f"kosc: {error}", file=sys.stderr)
        return WRONG_USE


def main() -> int:
    for name in ("SIGINT", "SIGPIPE"):  # ends by the signal, so that a shell's loop or pipe does, too
        if hasattr(signal, name):
            signal.signal(getattr(signal, name), signal.SIG_DFL)
    arguments = parser().parse_args()
    return guarded({"encode": encode, "decode": decode, "listen": listen, "bands": bands}[arguments.command], arguments)


if __name__ == "__main__":
    sys.exit(main())
