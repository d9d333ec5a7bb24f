#!/bin/bash
# Builds the page and serves it on localhost: web/serve.sh PORT
set -euo pipefail
cd "$(dirname "$0")/.."
. cmake/packages.sh
port=$1

need_packages cmake make emscripten binaryen node-acorn python3
if ! python3 -c 'import socket, sys; socket.create_server(("127.0.0.1", int(sys.argv[1])))' "$port" 2> /dev/null; then
    echo "Port '$port' cannot be had; name another, as in: ./demo.sh web 8001" >&2
    exit 2
fi
echo "Building the page; the first time this takes a minute."
mkdir -p build
if [ ! -e web/node_modules/@noble/hashes ]; then
    command -v npm > /dev/null || need_packages npm
    npm ci --prefix web --omit=dev --no-audit --no-fund --silent # what seals transfers
fi
if ! { cmake --preset web && cmake --build --preset web --parallel "$(nproc)"; } > build/web.log 2>&1; then
    cat build/web.log >&2
    exit 2
fi
cat << END

Open http://localhost:$port/ in a browser; Ctrl-C here ends.

  Listen        press "Start listening" and allow the microphone. The waterfall shows 14 to 22 kHz.
  Send          type a message of any length, or choose a file, and press "Send". This device hears itself; another
                one, with the page open, hears it too.
  Recording     drop a sound file on the page, such as build/demo/noisy.wav that ./demo.sh leaves.
  Device check  "Run the check" tells whether this loudspeaker and microphone pass the band.

END
exec python3 -m http.server --bind 127.0.0.1 --directory build/web/site "$port"
