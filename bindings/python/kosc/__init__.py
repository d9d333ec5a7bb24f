"""Data-over-sound modem: 28 bytes become a quarter of a second of sound at 18 to 21 kHz, or in another band, and back.

    import kosc

    frame = kosc.encode("hello over sound")         # int16 samples, 48000 Hz, mono: play them
    with kosc.Receiver(channels=1) as receiver:
        for message in receiver.push(frame) + receiver.finish():
            print(message.time, message.text)

    for message in kosc.listen("recording.wav"):    # a file, a stream, or any iterable of blocks
        print(message)

`kosc.transfer` sends and receives what is longer than a message: files and long text, sealed if that is asked for.

At a shell, `python -m kosc` writes messages into files and prints those in files and of the microphone.

Everything is computed by the shared library libkosc.so.1; `kosc.core` opens its stages one by one. The library's log
lines, from WARN on, go to the logger "kosc" of the logging module. All calls may be made from any thread: the
interpreter's lock is held in them.
"""

from ._bands import BANDS, DEFAULT_BAND, WIDE_BANDS, Band, find_band
from ._library import KoscError, LibraryNotFoundError
from ._version import __version__
from .modem import FRAME_LENGTH, MESSAGE_LENGTH, SAMPLE_RATE, encode
from .receiver import Combined, Message, Receiver
from .recordings import listen
from . import core, transfer

__all__ = ["BANDS", "DEFAULT_BAND", "FRAME_LENGTH", "MESSAGE_LENGTH", "SAMPLE_RATE", "Band", "Combined",
           "KoscError", "LibraryNotFoundError", "Message", "Receiver", "WIDE_BANDS", "__version__", "core", "encode", "find_band",
           "listen", "transfer"]
