#!/bin/sh
# Installs the build into a scratch prefix, builds the host program through
# pkg-config and through the CMake package, and runs both. Arguments: build
# tree, host sources, scratch folder, and for a cross build the C compiler
# and the CMake toolchain file (its programs run through binfmt).
set -e
build="$1"; src="$2"; work="$3"; cc="${4:-cc}"; toolchain="$5"
rm -rf "$work"; mkdir -p "$work/data1" "$work/data2"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
pcdir=$(dirname "$(find "$work/prefix" -name tolv.pc | head -n 1)")
libdir=$(dirname "$pcdir")
export PKG_CONFIG_PATH="$pcdir"
"$cc" "$src/host_check.c" $(pkg-config --cflags --libs tolv) -o "$work/host_pc"
LD_LIBRARY_PATH="$libdir" KEEL_DATA_PATH="$work/data1" "$work/host_pc"
cmake -S "$src" -B "$work/cmake-host" -DCMAKE_PREFIX_PATH="$work/prefix" \
      ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} > "$work/cmake.log"
cmake --build "$work/cmake-host" > "$work/cmake-build.log"
LD_LIBRARY_PATH="$libdir" KEEL_DATA_PATH="$work/data2" "$work/cmake-host/host_check"
