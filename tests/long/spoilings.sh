#!/bin/bash
# Spoils recordings in 47 ways, 100 times each, and counts how often `kosc inspect` names the right cause; ten minutes of
# two processors' time. Arguments go to spoilings.py.
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/packages.sh
need_packages cmake make g++ pkg-config libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev libcairo2-dev libsodium-dev \
    portaudio19-dev libgtest-dev python3 python3-numpy lame opus-tools ffmpeg
cmake --preset release > /dev/null
cmake --build --preset release --parallel "$(nproc)" --target kosc_tool > /dev/null
/usr/bin/python3 tests/long/spoilings.py build/release/tools/kosc/kosc "$@"
