#!/bin/bash
# The list of exported names, as LLVM's linker for Apple's systems reads it: a library of functions with all these names
# and one more exports them alone.
#
#     apple_linker.sh CLANG LINKER NM CMAKE SOURCE
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$4" -DKIND=apple -DMAP="$5/cmake/kosc.map" -DLIST="$work/list" -P "$5/cmake/export_list.cmake"
{ sed 's/^_\(.*\)/void \1(void) {}/' list; echo 'void hidden_from_hosts(void) {}'; } > names.c
"$1" --target=x86_64-apple-macos10.13 -w -fno-builtin -ffreestanding -c names.c
"$2" -arch x86_64 -platform_version macos 10.13 10.13 -dylib -undefined dynamic_lookup -exported_symbols_list list \
    names.o -o library.dylib
"$3" --extern-only --defined-only library.dylib | awk '{ print $3 }' | sort | diff <(sort list) -
