#!/bin/bash
# Builds the fuzzers and runs all four side by side for so many seconds each (60), starting from the kept corpus and
# from what earlier runs found. Findings and new inputs go to build/fuzz/found; fails when something was found.
#
#   fuzz/run.sh [SECONDS]
#   fuzz/run.sh minimise    chooses anew what corpus/*.tar.xz keep: few inputs that reach all that was ever reached
set -euo pipefail
cd "$(dirname "$0")/.."

targets=(fuzz_decode fuzz_config fuzz_coding fuzz_transfer)
found=$PWD/build/fuzz/found
unpacked=$PWD/build/fuzz/fuzz/corpus
# One input takes milliseconds; a configuration that takes most may have a frame of a minute and a half.
limits=(-rss_limit_mb=2048 -timeout=120 -max_len=2048)

cmake --preset fuzz > /dev/null
cmake --build --preset fuzz --parallel "$(nproc)" > /dev/null

run() {
    local target=$1 seconds=$2
    mkdir -p "$found/$target"
    build/fuzz/fuzz/"$target" "${limits[@]}" -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix="$found/$target-" "$found/$target" "$unpacked/$target" fuzz/corpus/"$target" \
        > /dev/null 2> "$found/$target.log" || { tail -n 40 "$found/$target.log" >&2; return 1; }
    printf '%s: %s\n' "$target" "$(grep -ao '#[0-9]*[[:space:]]DONE.*' "$found/$target.log" | tr -s '\t ' ' ')"
}

minimise() {
    local target=$1 archive=$PWD/fuzz/corpus/$1.tar.xz kept
    mkdir -p "$found/$target"
    kept=$(mktemp -d)
    build/fuzz/fuzz/"$target" "${limits[@]}" -merge=1 -set_cover_merge=1 \
        "$kept" fuzz/corpus/"$target" "$unpacked/$target" "$found/$target" > /dev/null 2>&1
    (cd "$kept" && cmake -E tar cJf "$archive" --format=gnutar --mtime=2000-01-01 -- *)
    echo "$target: $(find "$kept" -type f | wc -l) inputs kept"
    rm -r "$kept"
}

if [ "${1:-}" = minimise ]; then
    for target in "${targets[@]}"; do minimise "$target"; done
    exit
fi

jobs=()
for target in "${targets[@]}"; do
    run "$target" "${1:-60}" &
    jobs+=($!)
done
status=0
for job in "${jobs[@]}"; do wait "$job" || status=1; done
exit $status
