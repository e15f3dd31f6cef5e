#!/bin/sh
# The whole test suite on 64-bit ARM: a cross build with Debian's cross
# toolchain against the arm64 builds of the dependencies (multiarch), every
# test program run under user-mode QEMU. Installs what is missing, like
# deps.sh, and needs root (or sudo) for that the first time.
# Usage: test-arm64.sh [build-dir] [extra cmake arguments...]
set -e
build="${1:-build-arm64}"
[ $# -gt 0 ] && shift
jobs="${JOBS:-2}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"

installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

# Cross compiler, emulator and the arm64 builds of every library the build
# and the tests link (the benchmarks are not built here).
host_pkgs="cmake make pkg-config crossbuild-essential-arm64 qemu-user-static binfmt-support"
arm_pkgs="libfftw3-dev libkissfft-dev libwebrtc-audio-processing-dev libgtest-dev libgmock-dev libsndfile1-dev"
missing=""
for p in $host_pkgs; do installed "$p" || missing="$missing $p"; done
for p in $arm_pkgs; do installed "$p:arm64" || missing="$missing $p:arm64"; done
if [ -n "$missing" ]; then
    echo "installing:$missing"
    if ! dpkg --print-foreign-architectures | grep -qx arm64; then
        $SUDO dpkg --add-architecture arm64
    fi
    $SUDO apt-get update -q
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q $missing
fi

# Test programs start other programs (the command-line tool, fresh copies of
# themselves): the kernel hands arm64 executables to QEMU once the handler
# is registered.
binfmt=/proc/sys/fs/binfmt_misc
if [ ! -e "$binfmt/status" ]; then
    $SUDO mount -t binfmt_misc binfmt_misc "$binfmt"
fi
if [ ! -e "$binfmt/qemu-aarch64" ]; then
    $SUDO update-binfmts --enable qemu-aarch64
fi

here="$(cd "$(dirname "$0")/.." && pwd)"
cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_TOOLCHAIN_FILE="$here/cmake/aarch64-linux-gnu.cmake" "$@"
cmake --build "$build" -j "$jobs"

# Same bits on both machines needs every multiply and add rounded on its
# own: arm64 compilers fuse them unless told not to, so any fused
# instruction in the libraries means -ffp-contract=off went missing.
for lib in "$build/src/libtolv.so" "$build/keel/libkeel.so"; do
    fused=$(aarch64-linux-gnu-objdump -d "$lib" |
        grep -cE '[[:space:]](fn?madd|fn?msub|fmla|fmls)[[:space:]]' || true)
    if [ "$fused" -ne 0 ]; then
        echo "$lib: $fused fused multiply-add instructions" >&2
        exit 1
    fi
done
echo "no fused multiply-add in libtolv and libkeel"
ctest --test-dir "$build" --output-on-failure -j "$jobs"
