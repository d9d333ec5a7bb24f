#!/usr/bin/env python3
"""Runs the benchmarks of a build and prints the ratios that docs/performance.md shows.

usage: bench/report.py BUILD_FOLDER [--plot FILE.svg]     (plots with gnuplot)

Each benchmark runs several times, its own runs in between those of all others; the fastest run of each counts, because
what disturbs a run only ever makes it slower.
"""

import argparse
import json
import subprocess
from pathlib import Path

# What is compared: name, benchmark, what it is held against, figure, unit.
ROWS = [
    ("receive noise, blocks of 4096", "receive_noise/4096", "receive_noise_plain/4096", "per_sample", "ns"),
    ("receive noise, blocks of 480", "receive_noise/480", "receive_noise_plain/480", "per_sample", "ns"),
    ("receive frames, blocks of 4096", "receive_frames/4096", "receive_frames_plain/4096", "per_sample", "ns"),
    ("receive a frame, then silence", "receive_decay/4096", "receive_decay_plain/4096", "per_sample", "ns"),
    ("data_container_recv, one sample", "recv_sample/fast", "recv_sample/plain", "per_sample", "ns"),
    ("1024-point FFT, forward and back", "fft_1024/fast", "fft_1024/plain", "cpu_time", "us"),
    ("Viterbi, default frame", "viterbi/fast", "viterbi/plain", "cpu_time", "us"),
    ("decode one frame", "decode_frame/fast", "decode_frame/plain", "cpu_time", "us"),
    ("encode one frame", "encode_frame/fast", "encode_frame/plain", "cpu_time", "us"),
    ("FFT against FFTW, measured plan", "fft_1024/fast", "fft_1024_fftw", "cpu_time", "us"),
    ("Viterbi against libfec, K=7, rate 1/2", "viterbi/fast", "viterbi_fec_27", "cpu_time", "us"),
    ("noise against liquid-dsp, the whole", "receive_noise/4096", "receive_noise_liquid", "cpu_time", "ms"),
    ("30 frames against liquid-dsp, the whole", "receive_frames/4096", "receive_frames_liquid", "cpu_time", "ms"),
]


def measure(folder, repetitions):
    """The smallest figures of every benchmark, by name."""
    best = {}
    for program in ("kosc_bench", "liquid_bench"):
        path = Path(folder, "bench", program)
        if not path.exists():
            continue
        report = subprocess.run(
            [path, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}", "--benchmark_min_time=0.05",
             "--benchmark_enable_random_interleaving=true"], check=True, capture_output=True, text=True).stdout
        for run in json.loads(report)["benchmarks"]:
            if run["run_type"] == "iteration" and "error_occurred" not in run:
                kept = best.setdefault(run["run_name"], dict(run))
                for figure in ("cpu_time", "per_sample"):
                    if figure in run:
                        kept[figure] = min(kept[figure], run[figure])
    return best


def value(run, figure):
    return run[figure] * (1e9 if figure == "per_sample" else 1)


def plot(best, file):
    """Nanoseconds a sample over the block size, and by layout."""
    blocks = {int(name.split("/")[1]): value(run, "per_sample") for name, run in best.items()
              if name.startswith("receive_noise/")}
    layouts = {}
    for name, run in best.items():
        if name.startswith("receive_layout/"):
            subcarriers, symbol, tracks = (part.split(":")[1] for part in name.split("/")[1:])
            layouts[f"{subcarriers} of {symbol}, {tracks} tr."] = value(run, "per_sample")
    script = f"""set terminal svg size 900,360 font 'sans-serif,12' background 'white'
set output '{file}'
set multiplot layout 1,2
set title 'Noise, by block size'
set xlabel 'samples a block'
set xrange [1:20000]
set ylabel 'ns a sample'
set logscale xy
set grid
plot '-' with linespoints pt 7 notitle
{"".join(f"{size} {ns}{chr(10)}" for size, ns in sorted(blocks.items()))}e
unset logscale
set title 'Noise, by subcarriers, symbol and tracks'
unset xlabel
set xrange [*:*]
set yrange [0:*]
set style data histograms
set style fill solid 0.6
set xtics rotate by -35 font ',10'
set rmargin 8
plot '-' using 2:xtic(1) notitle
{"".join(f'"{name}" {ns}{chr(10)}' for name, ns in sorted(layouts.items(), key=lambda item: item[1]))}e
"""
    subprocess.run(["gnuplot"], input=script, check=True, text=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder")
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--plot")
    arguments = parser.parse_args()
    best = measure(arguments.folder, arguments.repetitions)
    print("| work | here | held against | ratio |")
    print("|---|---|---|---|")
    for name, ours, other, figure, unit in ROWS:
        if ours in best and other in best:
            here, there = value(best[ours], figure), value(best[other], figure)
            print(f"| {name} | {here:.3g} {unit} | {there:.3g} {unit} | {there / here:.1f} |")
    print()
    for name, run in sorted(best.items()):
        if "per_sample" in run:
            print(f"{name}: {value(run, 'per_sample'):.1f} ns a sample")
    if arguments.plot:
        plot(best, arguments.plot)


if __name__ == "__main__":
    main()
