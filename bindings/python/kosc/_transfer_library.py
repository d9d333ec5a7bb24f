"""Finds and loads libkosc_transfer, at the first transfer: messages alone do without it."""

from __future__ import annotations

import ctypes
import functools
import os
import sys
from ctypes import POINTER, Structure, c_bool, c_int, c_uint32, c_void_p
from pathlib import Path
from typing import Any

from ._library import LibraryNotFoundError, lib

NAME = "libkosc_transfer.1.dylib" if sys.platform == "darwin" else "libkosc_transfer.so.1"
PLAIN, PROGRESS, REPEATED, FINISHED, MISMATCH, REFUSED = range(6)
NO_MEMORY = -2


class Limits(Structure):
    _fields_ = [(name, c_uint32) for name in ("payload_bytes", "memory_bytes", "transfers", "finished")]


class Event(Structure):
    _fields_ = [("id", c_uint32), ("held", c_uint32), ("needed", c_uint32), ("kind", c_uint32),
                ("payload", c_void_p), ("payload_len", c_uint32)]


FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "round": (c_uint32, [c_uint32]),
    "sender_init": (c_void_p, [c_void_p, c_uint32, c_uint32, c_uint32]),
    "sender_free": (None, [c_void_p]),
    "sender_needed": (c_uint32, [c_void_p]),
    "sender_message": (c_bool, [c_void_p, c_uint32, c_void_p]),
    "default_limits": (Limits, []),
    "receiver_init": (c_void_p, [POINTER(Limits)]),
    "receiver_free": (None, [c_void_p]),
    "take": (c_int, [c_void_p, c_void_p, POINTER(Event)]),
}


@functools.lru_cache(maxsize=None)
def transfer_library() -> Any:
    """The library's functions, without their common `kosc_transfer_`."""
    named = os.environ.get("KOSC_TRANSFER_LIBRARY")
    places = [("KOSC_TRANSFER_LIBRARY", named)] if named else [
        ("beside the package", str(Path(__file__).with_name(NAME))),
        *([("beside libkosc", str(Path(lib.path).with_name(NAME)))] if os.path.dirname(lib.path) else []),
        ("the system", NAME)]
    failures = []
    for place, path in places:
        try:
            return _Functions(ctypes.PyDLL(path))  # holds the interpreter's lock: one call at a time
        except (OSError, AttributeError) as error:
            failures.append(f"  {place}: {error}")
    hint = "" if named else ("\nSet KOSC_TRANSFER_LIBRARY to the path of the shared library, or install the package "
                             "libkosc-transfer1.")
    raise LibraryNotFoundError("cannot load libkosc_transfer; looked for it here:\n" + "\n".join(failures) + hint)


class _Functions:
    def __init__(self, library: ctypes.PyDLL) -> None:
        for name, (result, arguments) in FUNCTIONS.items():
            function = getattr(library, f"kosc_transfer_{name}")
            function.restype, function.argtypes = result, arguments
            setattr(self, name, function)
