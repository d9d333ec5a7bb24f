#!/usr/bin/env python3
"""Holds a shared library with libkosc's host calls against the known answers beside this file."""

import ctypes
import itertools
import json
import sys
from pathlib import Path

HERE = Path(__file__).parent


class Result(ctypes.Structure):
    _fields_ = [("msg", ctypes.POINTER(ctypes.c_uint8)), ("len", ctypes.c_uint32)]


LOG_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_char_p)
RECV_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.POINTER(Result), ctypes.c_uint32)
no_log = LOG_CALLBACK(lambda line: None)


class Modem:
    """A fresh handle; `heard` collects the messages of channel 0, in hex."""

    def __init__(self, library):
        self.heard = []
        self.callback = RECV_CALLBACK(lambda results, count: self.heard.extend(
            bytes(result.msg[:result.len]).hex() for result in results[:count]))
        self.library = library
        self.handle = ctypes.c_void_p(library.ko_soundcommu_init(self.callback, self.callback))

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.library.ko_soundcommu_release(self.handle)


def encode(library, message, size):
    frame = ctypes.create_string_buffer(size)
    with Modem(library) as modem:
        status = library.ko_soundcommu_encode(modem.handle, message, len(message), frame, size)
    return frame.raw if status == 0 else None


def decode(library, sound, block_sizes):
    """The messages heard in `sound`, cut into blocks of so many samples, and the call that delivered each."""
    calls, start = [], 0
    with Modem(library) as modem:
        for call, samples in enumerate(itertools.cycle(block_sizes)):
            block = sound[start:start + 2 * samples]
            if not block:
                return {"messages": modem.heard, "calls": calls}
            if library.ko_soundcommu_decode(modem.handle, block, len(block), 0) != 0:
                return {"failed in call": call}
            calls += [call] * (len(modem.heard) - len(calls))
            start += len(block)


def main(path):
    library = ctypes.CDLL(path)
    library.ko_soundcommu_init.restype = ctypes.c_void_p
    library.ko_soundcommu_register_log(no_log)
    wrong = []
    for file in sorted(HERE.glob("frame_*.json")):
        expected = file.with_suffix(".s16").read_bytes()
        if encode(library, bytes.fromhex(json.loads(file.read_text())["message"]), len(expected)) != expected:
            wrong.append(f"{file.stem}: the frame's samples differ")
    recordings = json.loads((HERE / "recordings.json").read_text())
    cycle = recordings.pop("cycle")
    for name, recording in recordings.items():
        sound = (HERE / recording["file"]).read_bytes()
        for cutting, expected in recording["results"].items():
            sizes = {"whole": [len(sound) // 2], "cycle": cycle}.get(cutting) or [int(cutting)]
            heard = decode(library, sound, sizes)
            if heard != {key: expected[key] for key in ("messages", "calls")}:
                wrong.append(f"{name} in blocks of {cutting}: {heard}")
    print("\n".join(wrong) or "All frames and recordings give the known answers.")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]) if len(sys.argv) == 2 else __doc__)
