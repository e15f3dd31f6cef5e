# Cross build for 64-bit ARM Linux with Debian's cross toolchain
# (crossbuild-essential-arm64) against the arm64 builds of the dependencies
# from Debian's multiarch packages. Test programs run under user-mode QEMU.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Libraries, headers and CMake packages of the target come from the arm64
# multiarch directories; programs (pkg-config, sh) from the build machine.
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR}
    /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# ctest starts every test program through the emulator. The arm64 loader
# and C library are those of the multiarch packages (/lib/ld-linux-aarch64.so.1
# and /usr/lib/aarch64-linux-gnu), the same ones that programs started by the
# tests get through the kernel's binfmt handler; pointing QEMU at the cross
# toolchain's own sysroot (-L /usr/aarch64-linux-gnu) mixes two builds of the
# C library, and threaded programs then hang at their first thread.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
