#!/bin/bash
# Installs a build for Windows and builds the example hosts against the installed tree, by CMake, with the DLLs and with
# the static libraries; under wine each must hear itself. So must the command, if it was built.
#
#     windows.sh BUILD
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
root=$here/../..
work=$(mktemp -d)
export WINEPREFIX=$work/wine WINEDEBUG=-all WINEPATH=Z:$work/prefix/bin
export WINEDLLOVERRIDES=mscoree,mshtml= # what a new prefix would ask for
trap 'wineserver --kill || true; rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" > "$work/log"
cmake -S "$here" -B "$work/build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/mingw.cmake" \
    -DCMAKE_FIND_ROOT_PATH="$work/prefix" -DCMAKE_PREFIX_PATH=/ -DHOST_SOURCE="$root/examples/host.c" \
    -DTRANSFER_SOURCE="$root/examples/transfer.c" > "$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/build" > "$work/log" || { cat "$work/log"; exit 1; }

expect() {
    [ "$2" = "$3" ] || { echo "$1 printed '$3'" >&2; exit 1; }
    echo "$1: $3"
}
for program in with_package with_static_package; do
    expect $program "heard: hello over sound" "$(wine "$work/build/$program.exe" | tr -d '\r')"
done
for program in transfer static_transfer; do
    wine "$work/build/$program.exe" "$root/README.md" 2> "$work/log" | cmp - "$root/README.md" || { cat "$work/log"; exit 1; }
    echo "$program: carried README.md"
done
if [ -e "$work/prefix/bin/kosc.exe" ]; then
    kosc() { wine "$work/prefix/bin/kosc.exe" "$@"; }
    kosc encode "grüße" -o "$work/a.wav"
    expect decode "0.100 s  ch 1  grüße" "$(kosc decode "$work/a.wav")"
    expect "decode, from a pipe" "0.100 s  ch 1  grüße" "$(kosc encode grüße -o - | kosc decode -)"
    long="a text that is longer than one message: grüße"
    expect "decode, of a long text" "$long" "$(kosc encode "$long" -o - | kosc decode - | cut -d " " -f 7-)"
    cp "$root/examples/host.c" "$work/grüße.c"
    mkdir "$work/in"
    kosc encode --file "$work/grüße.c" --band wide --rounds 2 -o "$work/c.wav"
    for name in grüße.c grüße-2.c; do
        kosc decode --band wide --save "$work/in" --quiet "$work/c.wav"
        cmp "$work/in/$name" "$work/grüße.c"
    done
    [ "$(ls "$work/in" | wc -l)" -eq 2 ]
    echo "decode --save: grüße.c grüße-2.c"
    kosc simulate "$work/a.wav" "$work/b.wav" --snr 3 --drift 800 --gain -12 --seed 3
    expect inspect "           named cause: drift" "$(kosc inspect "$work/b.wav" | grep named)"
fi
