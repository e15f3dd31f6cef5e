#!/bin/sh
# Installs the Debian packages the build needs, only when one is missing, so
# repeated runs stay fast. Needs root the first time on a fresh machine.
set -e
pkgs="cmake g++ make pkg-config libgtest-dev libbenchmark-dev libfftw3-dev libkissfft-dev libwebrtc-audio-processing-dev"
# Benchmark-only: converters the resampler's throughput is set beside.
pkgs="$pkgs libsamplerate0-dev libsoxr-dev"
missing=""
for p in $pkgs; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
echo "installing:$missing"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
$SUDO apt-get update -q
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q $missing
