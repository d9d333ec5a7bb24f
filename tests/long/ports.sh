#!/bin/bash
# Builds the library for other processors, systems, C libraries and settings, runs the tests there, under qemu-user or
# wine where needed, and holds the frames of each port against those of the native g++ build. Prints a table; about 20
# minutes on two cores.
#
#     tests/long/ports.sh [PORT...]       of: aarch64 armhf s390x unsigned-char musl mingw; without a PORT all of them
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/packages.sh
ports=("$@")
[ $# -gt 0 ] || ports=(aarch64 armhf s390x unsigned-char musl mingw)
root=$PWD/build/ports
jobs=$(nproc)
mkdir -p "$root"
need_packages cmake make g++ python3 pkg-config googletest libgtest-dev nlohmann-json3-dev

# Runs with its output in a file, which is shown when it fails.
logged() {
    "$@" > "$root/log" 2>&1 || { cat "$root/log"; echo "failed: $*"; exit 1; } >&2
}

# build PORT OPTION...
build() {
    local dir=$root/$1/kosc
    logged cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DKOSC_WERROR=ON -DKOSC_BUILD_TOOLS=OFF "${@:2}"
    logged cmake --build "$dir" --parallel "$jobs"
}

# Puts what the tests need under a prefix of the port's own: GoogleTest from source, and headers.
stage() {
    local stage=$root/$1/stage
    logged cmake -S /usr/src/googletest -B "$root/$1/gtest" -DCMAKE_BUILD_TYPE=Release -DBUILD_GMOCK=OFF \
        -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/$1.cmake" -DCMAKE_INSTALL_PREFIX="$stage/usr"
    logged cmake --build "$root/$1/gtest" --parallel "$jobs" --target install
    cp -r --parents /usr/include/nlohmann /usr/share/cmake/nlohmann_json "$stage"
}

# run_tests PORT: one field of the table.
run_tests() {
    ctest --test-dir "$root/$1/kosc" --parallel "$jobs" --output-on-failure --no-tests=error > "$root/$1/ctest.log" ||
        tail -n 60 "$root/$1/ctest.log" >&2
    sed -n 's/.* tests passed, \([0-9]*\) tests failed out of \([0-9]*\)/\2 tests, \1 failed/p' "$root/$1/ctest.log"
}

# frames PORT MODE COMPILER EMULATOR...: writes or compares the frames of a port.
frames() {
    local program=$root/$1/port_frames
    "$3" -std=c99 -O2 -static -Iinclude tests/long/port_frames.c "$root/$1/kosc/src/libkosc.a" -lm -o "$program"
    [ ! -e "$program.exe" ] || program+=.exe
    "${@:4}" "$program" "$2" "$root/base.frames" || echo "(frames are not what they should be)"
}

echo "== native: build"
build native -DKOSC_BUILD_TESTS=OFF -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++
frames native write gcc
table=()
for port in "${ports[@]}"; do
    echo "== $port: build and test"
    compiler=gcc emulator=()
    case $port in
        unsigned-char)
            build "$port" -DCMAKE_C_FLAGS=-funsigned-char -DCMAKE_CXX_FLAGS=-funsigned-char
            tests=$(run_tests "$port") ;;
        musl)
            need_packages musl-tools
            build "$port" -DKOSC_BUILD_TESTS=OFF -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/musl.cmake"
            compiler=musl-gcc tests="frames only" ;;
        mingw)
            need_packages wine64 wine g++-mingw-w64-x86-64 libcli11-dev
            export WINEPREFIX=$root/mingw/wine WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=
            emulator=(wine)
            mkdir -p "$WINEPREFIX"
            logged wineserver --persistent # else it starts anew behind every pause, and that takes long
            trap 'wineserver --kill' EXIT
            logged wine cmd /c exit
            stage "$port"
            cp -r --parents /usr/include/CLI /usr/share/cmake/CLI11 "$root/mingw/stage"
            build "$port" -DKOSC_BUILD_TOOLS=ON -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/$port.cmake" \
                -DCMAKE_FIND_ROOT_PATH="$root/$port/stage"
            compiler=x86_64-w64-mingw32-gcc-posix tests=$(run_tests "$port")
            logged tests/consumer/windows.sh "$root/mingw/kosc" ;;
        *)
            triple=$(sed -n 's/^set(KOSC_TRIPLE \(.*\))/\1/p' "cmake/toolchains/$port.cmake")
            emulator=("$(sed -n 's/^set(KOSC_QEMU \(.*\))/\1/p' "cmake/toolchains/$port.cmake")")
            need_packages qemu-user-static "g++-$triple"
            stage "$port"
            build "$port" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/$port.cmake" \
                -DCMAKE_FIND_ROOT_PATH="$root/$port/stage"
            compiler=$triple-gcc tests=$(run_tests "$port") ;;
    esac
    table+=("$(printf '%-14s %-22s %s' "$port" "$tests" "$(frames "$port" compare "$compiler" "${emulator[@]}")")")
done
printf '%s\n' "${table[@]}"
! printf '%s\n' "${table[@]}" | grep -qE '[1-9][0-9]* failed|not what they should be'
