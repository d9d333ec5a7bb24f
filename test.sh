#!/bin/bash
# Builds and tests everything: g++ and clang++ in release form, then clang++ under AddressSanitizer and UBSan, a program
# in C under MemorySanitizer and ThreadSanitizer, and the npm package and the page by emscripten, in node and Chromium;
# then builds for Windows and runs that under wine, and fuzzes for a minute. tests/long has what takes longer.
# Stops at the first build tree that fails; prints failures in full and of the rest only summaries.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/packages.sh

need_packages abigail-tools cmake make doxygen g++ g++-11 clang libclang-rt-14-dev clang-format-14 python3 pkg-config \
    libgtest-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev libcairo2-dev \
    libsodium-dev portaudio19-dev pulseaudio libasound2-plugins scdoc valgrind espeak-ng \
    python3-pytest python3-hypothesis python3-numpy python3-scipy python3-soundfile python3-matplotlib python3-venv \
    python3-hatchling python3-nacl openjdk-17-jdk-headless junit4 libgoogle-gson-java kotlin \
    emscripten binaryen node-acorn chromium lld llvm-14 \
    g++-mingw-w64-x86-64 wine wine64
command -v npm > /dev/null || need_packages npm

jobs=$(nproc)

# Prints what the command wrote only when it fails, without make's progress.
quietly() {
    local output
    output=$("$@" 2>&1) || { echo "$output" | grep -v '^\[ *[0-9]*%\]'; echo "failed: $*"; return 1; } >&2
}

quietly npm ci --prefix web --no-audit --no-fund # what drives Chromium, and bundles and type-checks the package
test_preset() {
    echo "== $1: build"
    quietly cmake --preset "$1"
    quietly cmake --build --preset "$1" --parallel "$jobs"
    echo "== $1: test"
    ctest --preset "$1" --parallel "$jobs" | grep -v -E '^ *Start +[0-9]+: | Passed +[0-9.]+ sec'
}

for preset in gcc clang sanitize memory threads; do
    test_preset $preset
done
echo "== windows: build, install, use under wine"
quietly cmake --preset windows
quietly cmake --build --preset windows --parallel "$jobs"
quietly tests/consumer/windows.sh build/windows
echo "== fuzz: a minute for each target, side by side"
fuzz/run.sh 60
test_preset web
