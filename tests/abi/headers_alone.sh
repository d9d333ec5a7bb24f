#!/bin/sh
# Compiles each public header alone, twice in a row, as strict C99 and as C++17, the C++ ones also without exceptions.
set -u
include=$1 cc=$2 cxx=$3
strict="-I$include -Wall -Wextra -Wpedantic -Wshadow -Wundef -Werror -fsyntax-only"
failed=0
cd "$include" || exit 1
for header in kosc/*.h kosc_transfer/*.h; do
    program=$(printf '#include "%s"\n#include "%s"\nint main(void) { return 0; }' "$header" "$header")
    # shellcheck disable=SC2086 # the flags are words
    if ! echo "$program" | "$cc" -xc -std=c99 $strict -Wstrict-prototypes - ||
        ! echo "$program" | "$cxx" -xc++ -std=c++17 $strict -Wold-style-cast -; then
        echo "$header does not compile alone" >&2
        failed=1
    fi
done
for header in kosc/*.hpp; do
    program=$(printf '#include "%s"\n#include "%s"\nint main() { return 0; }' "$header" "$header")
    for features in "" "-fno-exceptions -fno-rtti"; do
        # shellcheck disable=SC2086 # the flags are words
        if ! echo "$program" | "$cxx" -xc++ -std=c++17 $strict -Wold-style-cast $features -; then
            echo "$header does not compile alone $features" >&2
            failed=1
        fi
    done
done
exit $failed
