#!/usr/bin/env bash
# Installs the build tree into a fresh prefix, checks what landed there, then builds
# and runs a small consumer against it twice: through find_package(qzrcfa) and
# through pkg-config.
#   run.sh BUILD_DIR CONSUMER_SOURCE WORK_DIR CMAKE CXX [EXTRA_FLAGS [PYTHON [TOOLCHAIN_FILE [EMULATOR]]]]
# EXTRA_FLAGS go to the consumer's compile and link (the sanitizer build passes its
# sanitizer flags, since its library needs their runtime in the program). PYTHON, when
# the build has the Python module, imports the installed module. A cross build passes
# its toolchain file, for the consumer's CMake build, and the command that runs its
# programs (qemu-aarch64), which starts every program built or installed here.
set -euo pipefail
build=$1 source=$2 work=$3 cmake=$4 cxx=$5 flags=${6:-} python=${7:-} toolchain=${8:-}
read -r -a emulator <<<"${9:-}"

rm -rf "$work"
prefix=$work/prefix
"$cmake" --install "$build" --prefix "$prefix" >/dev/null

fail() { echo "consumer test: $*" >&2; exit 1; }
libdir=$(cd "$prefix" && ls -d lib*/ | head -n1); libdir=${libdir%/}
for f in include/qzrcfa.h include/qzrcfa.hpp include/qzrcfa_ext.h bin/qzrcfa-demosaic bin/qzrcfa-quality \
         "$libdir/pkgconfig/qzrcfa.pc" "$libdir/pkgconfig/qzrcfa-ext.pc" "$libdir/cmake/qzrcfa/qzrcfaConfig.cmake" \
         "$libdir/cmake/qzrcfa/qzrcfaConfigVersion.cmake" "$libdir/cmake/qzrcfa/qzrcfaTargets.cmake"; do
  [ -e "$prefix/$f" ] || fail "missing $f"
done
real=$(cd "$prefix/$libdir" && ls libqzrcfa.so.*.*.*)
[ "$(readlink "$prefix/$libdir/libqzrcfa.so.1")" = "$real" ] || fail "libqzrcfa.so.1 does not point at $real"
[ "$(readlink "$prefix/$libdir/libqzrcfa.so")" = "libqzrcfa.so.1" ] || fail "libqzrcfa.so does not point at libqzrcfa.so.1"
manual=$(${emulator[@]+"${emulator[@]}"} "$prefix/bin/qzrcfa-demosaic" --help) || fail "the installed tool does not run"
grep -q SYNOPSIS <<<"$manual" || fail "the installed tool prints no manual"

# CMake package.
"$cmake" -S "$source" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
"$cmake" --build "$work/cmake-build" >/dev/null
${emulator[@]+"${emulator[@]}"} "$work/cmake-build/consumer"

# A major version the package does not offer is refused.
sed 's/find_package(qzrcfa 1.0 REQUIRED)/find_package(qzrcfa 2.0 REQUIRED)/' "$source/CMakeLists.txt" >"$work/v2.txt"
mkdir -p "$work/v2-source" && cp "$source/consumer.cpp" "$work/v2-source/" && cp "$work/v2.txt" "$work/v2-source/CMakeLists.txt"
if out=$("$cmake" -S "$work/v2-source" -B "$work/v2-build" -DCMAKE_PREFIX_PATH="$prefix" 2>&1); then
  fail "find_package(qzrcfa 2.0) accepted version 1"
fi
grep -q 'version' <<<"$out" || fail "find_package(qzrcfa 2.0) failed for another reason: $out"

# pkg-config.
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
[ "$(pkg-config --modversion qzrcfa)" = "$(cd "$prefix/$libdir" && ls libqzrcfa.so.*.*.* | sed 's/libqzrcfa.so.//')" ] ||
  fail "pkg-config reports another version"
# shellcheck disable=SC2046
"$cxx" -std=c++20 $flags "$source/consumer.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs qzrcfa-ext)
LD_LIBRARY_PATH=$prefix/$libdir ${emulator[@]+"${emulator[@]}"} "$work/consumer-pc"

# The Python module, from the prefix's site-packages in a clean environment: it finds
# the installed libraries through its own run path.
if [ -n "$python" ]; then
  module=$(find "$prefix" -path '*/site-packages/qzrcfa.*.so')
  [ -n "$module" ] || fail "the Python module was not installed into site-packages"
  env -i PYTHONPATH="$(dirname "$module")" "$python" -c '
import numpy, qzrcfa
assert qzrcfa.__file__.startswith("'"$prefix"'"), qzrcfa.__file__
assert qzrcfa.demosaic(numpy.zeros((4, 6), numpy.uint8), "laplacian").shape == (4, 6, 3)' ||
    fail "the installed Python module does not work"
fi

# The GStreamer plugin, when the build has one, from the prefix's plugin folder alone: it
# finds the installed libraries through its own run path. Not in the sanitizer build,
# whose plugin needs the sanitizer runtime in gst-inspect-1.0, nor under emulation.
if [ -e "$build/gstreamer/libgstqzrcfa.so" ] && [ -z "$flags" ] && [ ${#emulator[@]} = 0 ]; then
  [ -e "$prefix/$libdir/gstreamer-1.0/libgstqzrcfa.so" ] || fail "the GStreamer plugin was not installed into $libdir/gstreamer-1.0"
  inspect=$(command -v gst-inspect-1.0) || fail "gst-inspect-1.0 is missing"
  # Its whole output first, then the search: piped into `grep -q` under pipefail,
  # gst-inspect-1.0 failed whenever grep found the line and quit before the last lines
  # were written (SIGPIPE, status 141), which comes down to how a loaded machine
  # schedules the two. Warnings on, so that a plugin that does not load says why.
  status=0
  said=$(env -i GST_PLUGIN_SYSTEM_PATH_1_0= GST_PLUGIN_PATH_1_0="$prefix/$libdir/gstreamer-1.0" \
    GST_REGISTRY_1_0="$work/gst-registry.bin" GST_DEBUG=2 GST_DEBUG_NO_COLOR=1 "$inspect" qzrcfademosaic 2>&1) || status=$?
  if [ "$status" != 0 ] || ! grep -q 'row-order' <<<"$said"; then
    fail "the installed GStreamer plugin does not load: gst-inspect-1.0 exited with status $status and said:"$'\n'"$said"
  fi
fi
