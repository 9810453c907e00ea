# Cross-compiling for 64-bit ARM (aarch64) on Debian with g++-aarch64-linux-gnu:
#
#   cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
#
# The libraries the tests and tools link (GoogleTest, libpng) are Debian's arm64
# packages, installed next to the machine's own (dpkg --add-architecture arm64), where
# the cross compiler and CMake look for them.
#
# Programs built here run under qemu-aarch64 (Debian's qemu-user): CTest starts every
# test program through it, and the tests that start programs of their own start them
# through it too. They run on the arm64 C and C++ runtime of those same packages
# (libc6:arm64, libstdc++6:arm64), whose dynamic loader sits at the path aarch64
# programs name. Pointing qemu at the cross compiler's own copy of the runtime
# (-L /usr/aarch64-linux-gnu) would pair that copy's loader with the arm64 packages' C
# library, which libpng's package requires and the loader finds first: two builds of
# glibc in one process.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
