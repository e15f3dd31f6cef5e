#!/bin/sh
# Installs the Debian packages a target needs, only when one is missing, so
# repeated runs stay fast. Needs root (or sudo) the first time on a fresh
# machine. Usage: deps.sh [group ...], groups: build (default), bench, fuzz,
# format, docs, demo, browser.
set -e
groups="${*:-build}"
pkgs="cmake g++ make pkg-config libgtest-dev libbenchmark-dev libfftw3-dev libkissfft-dev libwebrtc-audio-processing-dev libsndfile1-dev pybind11-dev python3-dev python3-numpy python3-scipy python3-pytest python3-soundfile python3-dask python3-distributed"
# Installed without the packages they recommend (a desktop's worth for the
# browser, which only runs headless here).
lean=""
for g in $groups; do
    case "$g" in
    build) ;;
    # Benchmark-only peers that throughput is set beside.
    bench) pkgs="$pkgs libsamplerate0-dev libsoxr-dev libliquid-dev libsoundtouch-dev" ;;
    # libFuzzer and the sanitizer runtimes of the fuzz build.
    fuzz) pkgs="$pkgs clang-14 libclang-rt-14-dev" ;;
    # The layout check of every source.
    format) pkgs="$pkgs clang-format-14" ;;
    # The HTML reference of the public header.
    docs) pkgs="$pkgs doxygen" ;;
    # The pictures of the demo page (gnuplot with its PNG terminals).
    demo) pkgs="$pkgs gnuplot-nox" ;;
    # The demo page rendered and checked in a headless browser.
    browser) lean="$lean chromium fonts-liberation python3" ;;
    *) echo "deps.sh: unknown group $g" >&2; exit 2 ;;
    esac
done
absent() {
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || printf ' %s' "$p"
    done
}
missing=$(absent $pkgs)
missing_lean=$(absent $lean)
[ -z "$missing$missing_lean" ] && exit 0
echo "installing:$missing$missing_lean"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
$SUDO apt-get update -q
# Another installer may hold the package lock for a while: wait for it.
install() { DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -o DPkg::Lock::Timeout=600 -y -q "$@"; }
[ -z "$missing" ] || install $missing
[ -z "$missing_lean" ] || install --no-install-recommends $missing_lean
