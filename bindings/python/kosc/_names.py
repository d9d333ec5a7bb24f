"""Names that came over the air, made harmless: a sender may choose any bytes."""

from __future__ import annotations

import re
import unicodedata

MOST_BYTES = 200  # leaves room on every file system for a number
MOST_ENDING = 16
NAMELESS = "received"
SEPARATORS = re.compile(r"[/\\]")
RESERVED = re.compile(r'[<>:"|?*]')  # by some file systems
HIDDEN = re.compile(r"^[.-]")  # hidden files, and what commands take for options
DEVICES = re.compile(r"(?i)(con|prn|aux|nul|com\d|lpt\d)(\.|$)")  # no files, on Windows
UNSEEN = ("C", "Zl", "Zp")  # categories: controls, marks that turn the direction of writing, ends of lines


def safe_name(name: str) -> str:
    """A file's name without a path, made of what was sent: nothing unseen, no dot at its beginning."""
    last = SEPARATORS.split(name)[-1]
    seen = "".join("_" if unicodedata.category(letter).startswith(UNSEEN) else letter for letter in last)
    clean = RESERVED.sub("_", seen).strip().rstrip(" .")
    if not clean:
        return NAMELESS
    clean = HIDDEN.sub("_", clean)
    return _cut(f"_{clean}" if DEVICES.match(clean) else clean)


def numbered(name: str, number: int) -> str:
    """The name with a number before its ending, from 2 on."""
    stem, ending = _parts(name)
    return name if number < 2 else f"{stem}-{number}{ending}"


def _parts(name: str) -> tuple[str, str]:
    stem, dot, ending = name.rpartition(".")
    return (stem, dot + ending) if stem and len(ending.encode()) <= MOST_ENDING else (name, "")


def _cut(name: str) -> str:
    stem, ending = _parts(name)
    room = MOST_BYTES - len(ending.encode())
    return stem.encode()[:room].decode(errors="ignore") + ending
