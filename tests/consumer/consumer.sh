#!/bin/bash
# Installs the library and builds the example host against the installed tree in every way that a project may take:
# CMake package, shared and static; pkg-config, shared and wholly static; loaded while it runs. Each must hear itself.
# The installed documents must have all that they link to.
#
#     consumer.sh BUILD C-COMPILER LIBDIR EXPECTED-OUTPUT       LIBDIR is relative to the prefix
set -euo pipefail
build=$1 compiler=$2 expected=$4
here=$(cd "$(dirname "$0")" && pwd)
source=$here/../../examples/host.c
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix libdir=$work/prefix/$3

cmake --install "$build" --prefix "$prefix" > "$work/log"
cmake -S "$here" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$compiler" \
    -DHOST_SOURCE="$source" -DTRANSFER_SOURCE="${source%/*}/transfer.c" > "$work/log"
cmake --build "$work/build" > "$work/log" || { cat "$work/log"; exit 1; }

export PKG_CONFIG_PATH=$libdir/pkgconfig
read -ra shared <<< "$(pkg-config --cflags --libs kosc)"
read -ra static <<< "$(pkg-config --static --cflags --libs kosc)"
"$compiler" -std=c99 "$source" "${shared[@]}" -o "$work/build/with_pkg_config"
"$compiler" -std=c99 -static "$source" "${static[@]}" -o "$work/build/with_static_pkg_config"
read -ra transfer <<< "$(pkg-config --cflags --libs kosc_transfer kosc)"
"$compiler" -std=c99 "${source%/*}/transfer.c" "${transfer[@]}" -o "$work/build/pkg_config_transfer"

for program in "$work"/build/with_*; do
    output=$(LD_LIBRARY_PATH=$libdir "$program")
    if [ "$output" != "$expected" ]; then
        echo "${program##*/} printed '$output'" >&2
        exit 1
    fi
    echo "${program##*/}: $output"
done
for program in "$work"/build/*transfer; do
    LD_LIBRARY_PATH=$libdir "$program" "$source" 2> "$work/log" | cmp - "$source" || { cat "$work/log"; exit 1; }
    echo "${program##*/}: carried ${source##*/}"
done

guide=$(find "$prefix" -name hosts.md)
while IFS=: read -r document link; do
    [ -e "$(dirname "$document")/$link" ] || { echo "${document#"$prefix/"} links to $link, which is not installed" >&2; exit 1; }
done < <(grep -roP --include=*.md '\]\(\K(?!\w+:)[^)# ]+(?=[)#])' "$(dirname "$guide")/..")
