#!/bin/sh
# Builds a C program against the installed library the way pkg-config says, shared and then wholly static.
set -eu
compiler=$1 libdir=$2 source=$3 expected=$4
export PKG_CONFIG_PATH="$libdir/pkgconfig" LD_LIBRARY_PATH="$libdir"
program=$(mktemp)
trap 'rm -f "$program"' EXIT

for form in shared static; do
    case $form in
        shared) flags=$(pkg-config --cflags --libs kosc) ;;
        static) flags="-static $(pkg-config --static --cflags --libs kosc)" ;;
    esac
    # shellcheck disable=SC2086 # the flags are words
    "$compiler" -std=c99 "$source" $flags -o "$program"
    output=$("$program")
    if [ "$output" != "$expected" ]; then
        echo "$form: the program printed '$output'" >&2
        exit 1
    fi
done
