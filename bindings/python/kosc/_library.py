"""Finds and loads libkosc, and routes its log: its ERROR lines become the texts of exceptions."""

from __future__ import annotations

import ctypes
import logging
import os
import sys
from pathlib import Path
from typing import Any

from . import _records as records

NAME = "libkosc.1.dylib" if sys.platform == "darwin" else "libkosc.so.1"
LOG_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_char_p)
LOGGER = logging.getLogger("kosc")
LEVELS = {"ERROR": logging.ERROR, "WARN": logging.WARNING, "INFO": logging.INFO, "DEBUG": logging.DEBUG}
LEVEL_WARN = 2


class KoscError(RuntimeError):
    """The library refused a call; the text is what it logged."""


class LibraryNotFoundError(ImportError):
    """libkosc cannot be loaded; the text says where it was looked for, and what was wrong there."""


def _load() -> ctypes.PyDLL:
    # PyDLL holds the interpreter's lock during calls: the library's logger must not be used from two threads at once.
    named = os.environ.get("KOSC_LIBRARY")
    beside = Path(__file__).with_name(NAME)
    places = [("KOSC_LIBRARY", named)] if named else [("beside the package", str(beside)), ("the system", NAME)]
    failures = []
    for place, path in places:
        try:
            return ctypes.PyDLL(path)
        except OSError as error:
            failures.append(f"  {place}: {error}")
    hint = "" if named else "\nSet KOSC_LIBRARY to the path of the shared library, or install the package libkosc1."
    raise LibraryNotFoundError("cannot load libkosc; looked for it here:\n" + "\n".join(failures) + hint)


class Library:
    """The loaded library: its exported functions by their names, with their types declared."""

    def __init__(self) -> None:
        self._library = _load()
        for name, (result, arguments) in records.FUNCTIONS.items():
            try:
                function = getattr(self._library, name)
            except AttributeError:
                raise LibraryNotFoundError(
                    f"{self.path} has no function {name}: it is older than this package") from None
            function.restype, function.argtypes = result, arguments
            setattr(self, name, function)
        self._errors: list[str] = []
        self._asking = False
        self._log_callback = LOG_CALLBACK(self._log)  # kept: the library calls it as long as it is loaded
        self.soundcomm_set_log_callback(ctypes.cast(self._log_callback, ctypes.c_void_p))
        self.soundcomm_config_log_time(0)
        self.soundcomm_set_log_level(LEVEL_WARN)

    def __getattr__(self, name: str) -> Any:  # the functions that __init__ sets, for type checkers
        raise AttributeError(name)

    @property
    def path(self) -> str:
        """What the library was loaded by."""
        return self._library._name

    def _log(self, line: bytes) -> None:
        """A line is "[LEVEL][message][source line]"; the message may hold brackets itself."""
        level, _, rest = line.decode("utf-8", "replace").strip()[1:].partition("][")
        text = rest.rpartition("][")[0]
        if level == "ERROR":
            self._errors.append(text)
        if not self._asking:
            LOGGER.log(LEVELS.get(level, logging.INFO), text)

    def error(self, what: str) -> KoscError:
        """The exception for a call that failed: `what` failed, and what the library logged about it."""
        reasons, self._errors = self._errors, []
        return KoscError(f"{what}: {'; '.join(reasons)}" if reasons else what)

    def ask(self, function: Any, *arguments: Any) -> tuple[Any, str]:
        """What a function answers, and its errors, for a caller who tells them: they are not logged as well."""
        self._errors, self._asking = [], True
        try:
            answer = function(*arguments)
        finally:
            self._asking = False
        return answer, "; ".join(self._errors)

    def forget_errors(self) -> None:
        """Before a call whose errors matter: drops those of earlier calls."""
        self._errors.clear()


lib = Library()
