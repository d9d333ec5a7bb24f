#!/bin/sh
# Checks the layout of every C and C++ file below the source root with the given clang-format.
cd "$1" || exit 1
find . \( -name build -o -name 'build-*' -o -name node_modules \) -prune -o \( -name '*.[ch]' -o -name '*.[ch]pp' \) -print0 |
    xargs -0 "$2" --dry-run -Werror
