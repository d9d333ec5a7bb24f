#!/bin/bash
# Installs the package with pip into a fresh virtual environment, offline, and uses it: pip_install.sh PYTHON WORK_DIR
set -euo pipefail
package=$(dirname "$(dirname "$(realpath "$0")")")
python=$1 work=$2

rm -rf "$work"
mkdir -p "$work"
cp -r "$package" "$work/package" # a folder of its own, so that what pip leaves in it shows
"$python" -m venv --system-site-packages "$work/venv"
"$work/venv/bin/pip" --quiet install --no-index --no-build-isolation "$work/package"
diff -r "$package" "$work/package"
cd "$work"
"$work/venv/bin/python" -c '
import importlib.metadata, pathlib, sys, kosc
assert pathlib.Path(kosc.__file__).is_relative_to(sys.prefix), kosc.__file__
assert pathlib.Path(kosc.__file__).with_name("py.typed").exists()
assert importlib.metadata.version("kosc") == kosc.__version__
with kosc.Receiver(channels=1) as receiver:
    heard = receiver.push(kosc.encode("from pip")) + receiver.finish()
assert [message.text for message in heard] == ["from pip"], heard
assert kosc.transfer.Collector().take(kosc.transfer.Sender("x").message(5)).payload.text == "x"
'
