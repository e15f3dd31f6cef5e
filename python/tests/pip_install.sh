#!/bin/sh
# `pip install ./python` as a user does it, offline: the build installed
# into a scratch prefix, a virtual environment over Debian's packages, the
# module built against the installed library, then one call through it.
set -e
build="$1"; src="$2"; work="$3"
rm -rf "$work"; mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
export PKG_CONFIG_PATH="$(dirname "$(find "$work/prefix" -name tolv.pc | head -n 1)")"
/usr/bin/python3 -m venv --system-site-packages "$work/venv"
cp -r "$src/python" "$src/internal" "$src/src" "$src/include" "$work/"
mkdir -p "$work/keel" && cp -r "$src/keel/include" "$work/keel/"
"$work/venv/bin/pip" install --no-build-isolation --no-index -q "$work/python" \
    > "$work/pip.log" 2>&1 || { cat "$work/pip.log"; exit 1; }
cd "$work"
"$work/venv/bin/python" -c '
import numpy as np, tolv
y = tolv.resample(np.ones(441, np.float32), 44100, 48000)
assert y.shape == (480,), y.shape
print("tolv", tolv.__version__, "from", tolv.__file__)
'
