#!/usr/bin/env python3
"""Plays frames of bands through lossy codecs and counts which messages come out: the table of docs/bands.md.

    bench/codecs.py --program build/bench/bench/band_frames

Needs an ffmpeg with libopus, libmp3lame, libgsm, libspeex and libvorbis, as Debian's is. In each cell: messages heard
at once, with the second look on, and, when they are repeated, with combining on as well.
"""

import argparse
import subprocess
import tempfile

# name: sample rate, encoder, file type
CODECS = {
    "G.711": (8000, "-c:a pcm_mulaw", "wav"),
    "G.722": (16000, "-c:a g722", "wav"),
    "GSM": (8000, "-c:a libgsm", "gsm"),
    "Speex": (16000, "-c:a libspeex", "ogg"),
    "Opus voice 12": (48000, "-c:a libopus -application voip -b:a 12k", "ogg"),
    "Opus voice 16": (48000, "-c:a libopus -application voip -b:a 16k", "ogg"),
    "Opus voice 24": (48000, "-c:a libopus -application voip -b:a 24k", "ogg"),
    "Opus voice 32": (48000, "-c:a libopus -application voip -b:a 32k", "ogg"),
    "Opus music 64": (48000, "-c:a libopus -application audio -b:a 64k", "ogg"),
    "MP3 64": (48000, "-c:a libmp3lame -b:a 64k", "mp3"),
    "MP3 128": (48000, "-c:a libmp3lame -b:a 128k", "mp3"),
    "AAC 64": (48000, "-c:a aac -b:a 64k", "mp4"),
    "Vorbis 64": (48000, "-c:a libvorbis -b:a 64k", "ogg"),
}
RAW = "-f s16le -ar 48000 -ac 1".split()
RESAMPLE = ["-af", "aresample=resampler=soxr"]  # ffmpeg's own resampler reaches less far up


def run(*words, sound=None):
    return subprocess.run(words, input=sound, check=True, stdout=subprocess.PIPE).stdout


def through(sound, codec, level):
    rate, encoder, file_type = CODECS[codec]
    with tempfile.NamedTemporaryFile(suffix="." + file_type) as file:
        quiet = "ffmpeg", "-hide_banner", "-loglevel", "error", "-y"
        volume = ["-af", f"volume={level},aresample=resampler=soxr"]
        run(*quiet, *RAW, "-i", "-", *volume, "-ar", str(rate), *encoder.split(), file.name, sound=sound)
        return run(*quiet, "-i", file.name, *RESAMPLE, *RAW, "-")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default="build/gcc/bench/band_frames", help="bench's band_frames")
    parser.add_argument("--frames", default="200")
    parser.add_argument("--repeats", default="1", help="frames of each message")
    parser.add_argument("--gap", default="0.3", help="seconds of silence behind each frame")
    parser.add_argument("--level", default="1", help="factor of the frame's peak of 0.8")
    parser.add_argument("--bands", default="telephone,voice,audible,high,near-ultrasonic")
    parser.add_argument("--codecs", default=",".join(CODECS))
    options = parser.parse_args()
    bands = options.bands.split(",")
    sent = [run(options.program, "write", band, options.frames, options.gap, options.repeats) for band in bands]
    repeated = options.repeats != "1"
    print(f"heard of {options.frames}, at once / with the second look{' / with combining' if repeated else ''}; "
          f"{options.gap} s of silence between frames\n")
    print("| codec | " + " | ".join(bands) + " |\n|---|" + "---|" * len(bands))
    for codec in options.codecs.split(","):
        cells = []
        for band, sound in zip(bands, sent):
            got = run(options.program, "read", band, options.frames, sound=through(sound, codec, options.level))
            *heard, wrong = map(int, got.split())
            cells.append(" / ".join(map(str, heard if repeated else heard[:2])) + (f", {wrong} false" if wrong else ""))
        print(f"| {codec} | " + " | ".join(cells) + " |", flush=True)


if __name__ == "__main__":
    main()
