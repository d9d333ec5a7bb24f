#!/bin/bash
# Plays 100 hours (or as many as the argument says) of sounds that hold no message to both receivers, in slices of ten
# hours with a seed each, and prints what they took for frames. Fails when a message comes out.
#
#     tests/long/false_messages.sh [HOURS [BAND [--crowd | --combine]]]
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/packages.sh
need_packages cmake make g++ espeak-ng libgtest-dev libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev

hours=${1:-100}
band=${2:-near-ultrasonic}
setting=${3:-}
slice_hours=$((hours < 10 ? hours : 10))
slices=$(((hours + 9) / 10))
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --preset release > /dev/null
cmake --build --preset release --parallel "$(nproc)" --target kosc_false_messages > /dev/null
for voice in en en-us+f3 de+m2 fr+f1 es ru pl+f4 cmn; do
    espeak-ng -v "$voice" -w "$work/$voice.wav" -f README.md
done
failed=0
seq "$slices" | xargs -P "$(nproc)" -I SEED sh -c \
    'build/release/tests/long/kosc_false_messages $3 "$1" "$2" SEED "$0"/*.wav > "$0/SEED.txt"' \
    "$work" "$band" "$slice_hours" "$setting" || failed=1
grep -h '^a message\|^what a spoilt' "$work"/*.txt || true
awk 'FNR == 1 { header = $0 }
     FNR > 1 && !/^a message|^what a spoilt|comparisons/ {
         name = substr($0, 1, 27)
         if (!(name in hours)) order[++kinds] = name
         n = split(substr($0, 28), column, " ")
         hours[name] += column[1]
         for (i = 2; i <= n; i++) sum[name, i] += column[i]
     }
     /comparisons/ { chances += $1 }
     END {
         print header
         for (k = 1; k <= kinds; k++) {
             printf "%s %9.3f", order[k], hours[order[k]]
             for (i = 2; i <= 5; i++) printf " %11d", sum[order[k], i]
             printf " %9d\n", sum[order[k], 6]
         }
         printf "%d comparisons with two CRCs of 16 bits: %.1e false messages are expected\n", chances, chances / 2 ^ 32
     }' "$work"/*.txt
exit "$failed"
