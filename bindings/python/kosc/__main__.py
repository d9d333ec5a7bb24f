"""python -m kosc: messages into sound files, and out of files, streams and the microphone."""

from __future__ import annotations

import argparse
import signal
import sys
import wave
from typing import Any, Callable, Iterable, Iterator, Union

import kosc

NO_MESSAGE, WRONG_USE = 1, 2
SILENCE = kosc.SAMPLE_RATE // 10  # samples on both sides of a frame
BLOCK = 4096


def parser() -> argparse.ArgumentParser:
    commands = argparse.ArgumentParser(prog="python -m kosc", description="Short messages as sound, and back.")
    commands.add_argument("--version", action="version", version=kosc.__version__)
    choice = commands.add_subparsers(dest="command", required=True, metavar="COMMAND")
    encode = choice.add_parser("encode", help="write a message into a WAV file")
    encode.add_argument("text", help=f"the message, up to {kosc.MESSAGE_LENGTH} bytes of UTF-8; - for standard input")
    encode.add_argument("--band", default=kosc.DEFAULT_BAND, metavar="NAME|HZ", help="as bands lists them, or where it "
                        f"begins in Hz; {kosc.DEFAULT_BAND} unless given")
    encode.add_argument("-o", "--output", required=True, metavar="FILE")
    decode = choice.add_parser("decode", help="print the messages in sound files")
    decode.add_argument("files", nargs="+", metavar="FILE")
    listen = choice.add_parser("listen", help="print messages as they are heard")
    listen.add_argument("source", nargs="?", choices=["-"], help="standard input, raw 16-bit samples; else the "
                        "microphone, which takes the package pyaudio")
    listen.add_argument("--channels", type=int, help="1 for the microphone unless given, 2 for standard input")
    for receiving in (decode, listen):
        receiving.add_argument("--band", type=several, default=kosc.DEFAULT_BAND, metavar="NAME|HZ",
                               help="where to listen: as for encode, or several with commas between, or all")
    choice.add_parser("bands", help="list the bands that have a name")
    return commands


def several(text: str) -> Union[str, list[str]]:
    return text if text == "all" else text.split(",")


def encode(arguments: argparse.Namespace) -> int:
    text = arguments.text
    frame = kosc.encode(sys.stdin.read().rstrip("\r\n") if text == "-" else text, band=arguments.band)
    with open(arguments.output, "wb") as output, wave.open(output, "wb") as file:
        file.setparams((1, frame.itemsize, kosc.SAMPLE_RATE, 0, "NONE", "not compressed"))
        silence = bytes(SILENCE * frame.itemsize)
        file.writeframes(silence + frame.astype("<i2").tobytes() + silence)
    return 0


def decode(arguments: argparse.Namespace) -> int:
    many = len(arguments.files) > 1
    return max(guarded(show, kosc.listen(file, band=arguments.band), f"{file}: " if many else "")
               for file in arguments.files)


def listen(arguments: argparse.Namespace) -> int:
    if arguments.source is not None:
        return show(kosc.listen(sys.stdin.buffer, arguments.channels, band=arguments.band))
    return show(hear_microphone(1 if arguments.channels is None else arguments.channels, arguments.band))


def bands(_: argparse.Namespace) -> int:
    for band in kosc.BANDS:
        print(f"{band.name:16} {band.low_hz:5.0f} to {band.high_hz:5.0f} Hz  {band.use}")
    return 0


def hear_microphone(channels: int, band: Any) -> Iterator[kosc.Message]:
    try:
        import pyaudio
    except ImportError:
        raise ValueError("listening to the microphone takes the package pyaudio, which is not installed") from None
    with kosc.Receiver(channels, band=band) as receiver:
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


def show(messages: Iterable[kosc.Message], before: str = "") -> int:
    """Prints messages as the command kosc does."""
    status = NO_MESSAGE
    for message in messages:
        status = 0
        shown = message.data.hex() if message.text is None else message.text
        look = "  [second look]" if message.second_look_needed else ""
        start = round(message.time, 3) + 0.0  # no minus before zero
        band = "" if message.band == kosc.DEFAULT_BAND else f"  [{message.band}]"
        print(f"{before}{start:.3f} s  ch {message.channel + 1}  {shown}{look}{band}", flush=True)
    return status


def guarded(action: Callable[..., int], *arguments: Any) -> int:
    """The action's exit status, or a sentence and that of wrong use."""
    try:
        return action(*arguments)
    except (OSError, ValueError, kosc.KoscError) as error:
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
