#!/bin/bash
# Builds the Debian packages, holds them against lintian, installs them into a clean system and uses them there.
# Needs root, a network with Debian's packages, and some minutes: tests/long/packages.sh [WORK_DIR]
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/packages.sh
work=$(realpath -m "${1:-build/packages-test}")
packages="libkosc1 libkosc-transfer1 libkosc-dev libkosc-doc kosc-tools python3-kosc"

need_packages cmake make g++ pkg-config libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev libcairo2-dev libsodium-dev \
    portaudio19-dev scdoc lintian mmdebstrap dpkg-dev
rm -rf build/packages "$work"
mkdir -p "$work/debs"
echo "== build"
{ cmake --preset packages && cmake --build --preset packages --parallel "$(nproc)" && (cd build/packages && cpack); } \
    > "$work/build.log" 2>&1 || { cat "$work/build.log"; exit 1; }
for package in $packages; do
    cp build/packages/"${package}"_*.deb "$work/debs"
done

echo "== lintian"
lintian --allow-root --fail-on error "$work"/debs/*.deb

cat > "$work/debs/use.sh" <<'USE'
set -euo pipefail
cd "$(mktemp -d)"
printf "clean system" | kosc encode - -o message.wav
kosc decode message.wav | grep "clean system"
zcat /usr/share/man/man1/kosc*.1.gz > /dev/null
python3 -c '
import kosc
assert kosc._library.lib.path == "libkosc.so.1", kosc._library.lib.path
print("python:", [message.text for message in kosc.listen("message.wav")])
' | grep "clean system"
grep -q "at least one, UTF-8" /usr/share/doc/libkosc-doc/docs/hosts.md
python3 /usr/share/kosc/vectors/run_vectors.py libkosc.so.1
apt-get -qq install -y --no-install-recommends gcc libc6-dev pkg-config > /dev/null
cc -std=c99 /debs/host.c $(pkg-config --cflags --libs kosc) -o host
cc -static -std=c99 /debs/host.c $(pkg-config --static --cflags --libs kosc) -o static_host
./host 2> /dev/null | grep "heard: hello over sound"
./static_host 2> /dev/null | grep "heard: hello over sound"
apt-get -qq purge -y python3-kosc kosc-tools libkosc-doc libkosc-dev libkosc-transfer1 libkosc1 > /dev/null
left=$(find / -xdev \( -path /proc -o -path /debs \) -prune -o -path '*kosc*' -print)
[ -z "$left" ] || { echo "left behind: $left"; exit 1; }
USE
cp examples/host.c "$work/debs"
echo "== clean system: install and use"
# The hooks get the new system's folder as $1.
# shellcheck disable=SC2016
mmdebstrap --quiet --variant=apt --mode=root --format=null \
    --customize-hook="copy-in '$work/debs' /" \
    --customize-hook='chroot "$1" sh -c "DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends /debs/*.deb > /dev/null"' \
    --customize-hook='chroot "$1" env DEBIAN_FRONTEND=noninteractive bash /debs/use.sh' \
    bookworm
echo "All packages install, work, and leave nothing behind."
