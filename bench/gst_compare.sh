#!/usr/bin/env bash
# What demosaicing adds to a GStreamer pipeline per frame: qzrcfademosaic on one thread
# and on every processor against GStreamer's bayer2rgb (gstreamer1.0-plugins-bad), both
# to BGRx, and qzrcfademosaic on 16-bit rggb16le frames (from multifilesrc). Each pipeline is
#   videotestsrc num-buffers=FRAMES ! video/x-raw,width=W,height=H ! rgb2bayer
#     ! video/x-bayer,format=rggb [! ELEMENT ! video/x-raw,format=BGRx] ! fakesink
# and an element's cost is its pipeline's wall time less the pipeline without it,
# divided by the frames; RUNS runs of each, interleaved, medians.
# Usage: bench/gst_compare.sh [BUILD_DIR]   (default build; env: WIDTH HEIGHT FRAMES RUNS METHOD)
set -euo pipefail
build=${1:-build}
width=${WIDTH:-4000} height=${HEIGHT:-3000} frames=${FRAMES:-60} runs=${RUNS:-5} method=${METHOD:-bilinear}
[ -e "$build/gstreamer/libgstqzrcfa.so" ] || { echo "no $build/gstreamer/libgstqzrcfa.so: build first (make build)" >&2; exit 1; }
export GST_PLUGIN_PATH="$build/gstreamer${GST_PLUGIN_PATH:+:$GST_PLUGIN_PATH}"
for e in videotestsrc rgb2bayer bayer2rgb qzrcfademosaic; do
  gst-inspect-1.0 "$e" >/dev/null 2>&1 || { echo "GStreamer element $e is missing" >&2; exit 1; }
done

source="videotestsrc num-buffers=$frames ! video/x-raw,width=$width,height=$height ! rgb2bayer ! video/x-bayer,format=rggb"
names=(none bayer2rgb "qzrcfademosaic threads=1" "qzrcfademosaic threads=0")
sources=("$source" "$source" "$source" "$source")
middles=("" "bayer2rgb ! video/x-raw,format=BGRx !"
         "qzrcfademosaic method=$method threads=1 ! video/x-raw,format=BGRx !"
         "qzrcfademosaic method=$method threads=0 ! video/x-raw,format=BGRx !")
bases=(0 0 0 0)
# 16-bit frames (rggb16le; bayer2rgb takes 8-bit frames only): one frame of noise read
# again and again by multifilesrc (gstreamer1.0-plugins-good), when it is there.
if gst-inspect-1.0 multifilesrc >/dev/null 2>&1; then
  frame16="$build/gst-compare-rggb16le.raw"
  trap 'rm -f "$frame16"' EXIT
  head -c $((width * height * 2)) /dev/urandom >"$frame16"
  source16="multifilesrc location=$frame16 loop=true num-buffers=$frames caps=video/x-bayer,format=rggb16le,width=$width,height=$height,framerate=30/1"
  n=${#names[@]}
  names+=(none16 "qzrcfademosaic rggb16le threads=1" "qzrcfademosaic rggb16le threads=0")
  sources+=("$source16" "$source16" "$source16")
  middles+=("" "qzrcfademosaic method=$method threads=1 ! video/x-raw,format=BGRx !"
            "qzrcfademosaic method=$method threads=0 ! video/x-raw,format=BGRx !")
  bases+=("$n" "$n" "$n")
else
  echo "no multifilesrc (gstreamer1.0-plugins-good): no rggb16le rows"
fi
declare -A times
for ((r = 0; r < runs; r++)); do
  for i in "${!names[@]}"; do
    start=$(date +%s%N)
    # shellcheck disable=SC2086
    gst-launch-1.0 -q ${sources[$i]} ! ${middles[$i]} fakesink sync=false >/dev/null
    times[$i]+="$(( ($(date +%s%N) - start) / 1000 )) "
  done
done

median() { tr ' ' '\n' | grep . | sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
echo "${width}x${height} rggb (and rggb16le) to BGRx, $frames frames, median of $runs runs, $(nproc) processors ($method for qzrcfademosaic)"
printf '%-34s %10s %14s\n' pipeline "total s" "ms per frame"
for i in "${!names[@]}"; do
  base=$(echo "${times[${bases[$i]}]}" | median)
  echo "${times[$i]}" | median | awk -v name="${names[$i]}" -v base="$base" -v frames="$frames" '{
    if (name ~ /^none/) printf "%-34s %10.2f %14s\n", name, $1 / 1e6, "(source only)"
    else printf "%-34s %10.2f %14.1f\n", name, $1 / 1e6, ($1 - base) / 1e3 / frames }'
done
