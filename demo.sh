#!/bin/bash
# A message into sound and back: ./demo.sh ["text of up to 28 bytes"]
# Leaves build/demo/message.wav, the message's sound, and build/demo/noisy.wav, a stereo recording that hears it.
# The same in a browser: ./demo.sh web [port]
set -euo pipefail
cd "$(dirname "$0")"
. cmake/packages.sh

if [ "${1-}" = web ]; then
    exec web/serve.sh "${2-8000}"
fi
text=${1-hello over sound}
out=build/demo

need_packages cmake make g++ pkg-config libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev libcairo2-dev portaudio19-dev libsodium-dev sox
mkdir -p $out
if ! { cmake -S . -B $out -DCMAKE_BUILD_TYPE=Release -DKOSC_BUILD_TESTS=OFF &&
    cmake --build $out --target kosc_tool --parallel "$(nproc)"; } > $out/build.log 2>&1; then
    cat $out/build.log >&2
    exit 2
fi
kosc=$out/tools/kosc/kosc

printf "%s" "$text" | "$kosc" encode - -o $out/message.wav
# The recording: the message reaches the left channel early and the right one later and fainter, 6 and 12 dB below the
# pink noise of a fixed seed on each channel.
sox -R $out/message.wav $out/left.wav vol 0.15 pad 0.5 1.5
sox -R $out/message.wav $out/right.wav vol 0.075 pad 1.25 0.75
sox -R -M $out/left.wav $out/right.wav $out/heard.wav
sox -R -n -r 48000 -c 2 -b 16 $out/noise.wav synth 2.5 pinknoise pinknoise vol 0.3
sox -R -m -v 1 $out/heard.wav -v 1 $out/noise.wav $out/noisy.wav
rm $out/left.wav $out/right.wav $out/heard.wav $out/noise.wav
echo "The message's sound: $out/message.wav; a noisy stereo recording of it: $out/noisy.wav"

for recording in message noisy; do
    echo
    echo "$ kosc decode $out/$recording.wav"
    "$kosc" decode $out/$recording.wav
done
