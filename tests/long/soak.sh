#!/bin/bash
# One receiver listens for 25 hours of sound, so that the sample index passes 2^32, with a frame every 5.5 seconds.
#
#     tests/long/soak.sh [HOURS [BAND [--crowd] [--combine]]]
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/packages.sh
need_packages cmake make g++ libgtest-dev libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev
cmake --preset release > /dev/null
cmake --build --preset release --parallel "$(nproc)" --target kosc_soak > /dev/null
time build/release/tests/long/kosc_soak "${1:-25}" 1 0 "${2:-near-ultrasonic}" "${@:3}"
