#!/usr/bin/env python3
"""A chart to choose a method by: colour PSNR on the bundled photographs against time per
megapixel, one point per method of the library and per OpenCV conversion the benchmark
timed, and the floor (read the frame once, write each pixel once) as a line.

    chart.py BENCH_JSON QUALITY_TOOL EXT_LIBRARY OUT_PNG IMAGE...

BENCH_JSON is qzrcfa-bench's --benchmark_out (JSON); the library's rows are ext_NAME@1 at
4000x3000, 24-bit. Qualities come from QUALITY_TOOL (qzrcfa-quality) on the IMAGEs; the
method it names in each row is read through the extended library's own table of names
(qzrcfa_lookup, qzrcfa_names), so a method added to the library appears here by itself.
OpenCV's qualities are measured here the same way: RGGB mosaic, colour PSNR of 8-bit
samples, 4 pixels left out on every side, the mean of the photographs' figures.
"""

import ctypes
import json
import math
import subprocess
import sys

import cv2
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

SIZE = "4000x3000"
MEGAPIXELS = 12.0
BORDER = 4
NAMES_METHOD = 0


class Name(ctypes.Structure):
    _fields_ = [("value", ctypes.c_int), ("name", ctypes.c_char_p), ("aliases", ctypes.c_char_p),
                ("identifier", ctypes.c_char_p), ("label", ctypes.c_char_p), ("summary", ctypes.c_char_p)]


def library_names(path):
    """Label -> name of every method, from the library's table."""
    lib = ctypes.CDLL(path)
    lib.qzrcfa_names.restype = ctypes.POINTER(Name)
    lib.qzrcfa_names.argtypes = [ctypes.c_int, ctypes.c_int]
    lib.qzrcfa_lookup.argtypes = [ctypes.c_int, ctypes.c_char_p]
    out = {}
    for i in range(64):
        entry = lib.qzrcfa_names(NAMES_METHOD, i)
        if not entry:
            break
        out[entry.contents.value] = entry.contents.name.decode()
    return lambda label: out.get(lib.qzrcfa_lookup(NAMES_METHOD, label.encode()))


def bench_times(path):
    """Milliseconds per megapixel of each benchmark family at SIZE, 24-bit (the median
    when the run repeated)."""
    with open(path) as f:
        runs = json.load(f)["benchmarks"]
    times = {}
    for run in runs:
        parts = run["run_name"].split("/")
        if len(parts) < 3 or parts[1] != SIZE or parts[2] != "24":
            continue
        if run.get("run_type") == "aggregate" and run.get("aggregate_name") != "median":
            continue
        if "error_occurred" in run and run["error_occurred"]:
            continue
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[run.get("time_unit", "ns")]
        ms = run["real_time"] * scale
        # A median overrides single runs of the same family.
        if run.get("run_type") == "aggregate" or parts[0] not in times:
            times[parts[0]] = ms / MEGAPIXELS
    return times


def our_qualities(tool, images, name_of):
    """Method name -> mean colour PSNR over the images, from the quality tool."""
    text = subprocess.run([tool, "--border", str(BORDER), *images], check=True, capture_output=True, text=True).stdout
    out = {}
    for line in text.splitlines()[1:]:
        fields = line.split()
        if len(fields) < 2:
            continue
        # The label is every field before the per-image columns and the mean.
        label = " ".join(fields[: len(fields) - len(images) - 1])
        name = name_of(label)
        if name is not None:
            try:
                out[name] = float(fields[-1])
            except ValueError:
                pass
    return out


def cpsnr(a, b):
    d = a[BORDER:-BORDER, BORDER:-BORDER].astype(np.float64) - b[BORDER:-BORDER, BORDER:-BORDER].astype(np.float64)
    mse = float(np.mean(d * d))
    return math.inf if mse == 0 else 10 * math.log10(255.0 * 255.0 / mse)


def opencv_qualities(images):
    """OpenCV's conversions on the RGGB mosaic of each photograph (its BayerBG codes take
    a frame whose top-left tile is RGGB)."""
    codes = {"opencv_bilinear": cv2.COLOR_BayerBG2BGR, "opencv_edge_aware": cv2.COLOR_BayerBG2BGR_EA,
             "opencv_vng": cv2.COLOR_BayerBG2BGR_VNG}
    out = {}
    for family, code in codes.items():
        figures = []
        for path in images:
            bgr = cv2.imread(path, cv2.IMREAD_COLOR)
            h, w = bgr.shape[:2]
            h, w = h - h % 2, w - w % 2
            bgr = bgr[:h, :w]
            mosaic = np.empty((h, w), np.uint8)
            mosaic[0::2, 0::2] = bgr[0::2, 0::2, 2]
            mosaic[0::2, 1::2] = bgr[0::2, 1::2, 1]
            mosaic[1::2, 0::2] = bgr[1::2, 0::2, 1]
            mosaic[1::2, 1::2] = bgr[1::2, 1::2, 0]
            figures.append(cpsnr(cv2.cvtColor(mosaic, code), bgr))
        out[family] = sum(figures) / len(figures)
    return out


def main(argv):
    if len(argv) < 6:
        sys.exit(__doc__)
    bench_json, tool, library, out_png, images = argv[1], argv[2], argv[3], argv[4], argv[5:]
    times = bench_times(bench_json)
    ours = our_qualities(tool, images, library_names(library))
    peers = opencv_qualities(images)

    fig, ax = plt.subplots(figsize=(9, 5.5), dpi=110)
    points = [(name, times.get(f"ext_{name}@1"), q, "o") for name, q in ours.items()]
    points += [(family.replace("opencv_", "OpenCV ").replace("_", "-"), times.get(family), q, "s")
               for family, q in peers.items()]
    missing = [p[0] for p in points if p[1] is None]
    points = sorted((p for p in points if p[1] is not None), key=lambda p: -p[2])
    colours = plt.get_cmap("tab20").colors
    for i, (label, t, q, marker) in enumerate(points):
        # Names sit in the legend, best first, so that close points never hide each other's.
        ax.scatter(t, q, marker=marker, color=colours[i % len(colours)], s=44, zorder=3,
                   label=f"{label}: {q:.2f} dB, {t:.2f} ms/MP")
    if "floor8" in times:
        ax.axvline(times["floor8"], color="grey", linestyle="--", linewidth=1,
                   label=f"floor (read once, write once): {times['floor8']:.2f} ms/MP")
    ax.legend(loc="center left", bbox_to_anchor=(1.01, 0.5), fontsize=8, frameon=False)
    ax.set_xscale("log")
    ax.set_xlabel(f"milliseconds per megapixel ({SIZE}, BGR 24-bit, one thread; log scale)")
    ax.set_ylabel(f"colour PSNR, dB (mean over {len(images)} photographs)")
    ax.set_title("Quality against time: the library's methods (circles) and OpenCV's (squares)")
    ax.grid(True, which="both", alpha=0.3)
    fig.tight_layout()
    fig.savefig(out_png)
    print(f"wrote {out_png}: {len(points)} methods"
          + (f" (no time measured for {', '.join(missing)})" if missing else ""))


if __name__ == "__main__":
    main(sys.argv)
