# The Python module: the bytes of the library's exports and of its C interface (called
# through ctypes) for a member of each family and every method's general rule, black
# level, white balance, colour matrix and curve included, packed rows against their
# samples, arrays used in place, every refusal as its exception, and the GIL released.
import ctypes
import inspect
import os
import re
import sys
import threading
import time
import tracemalloc

import numpy as np
import pytest

import qzrcfa

lib = ctypes.CDLL(os.environ.get("QZRCFA_LIBRARY", "libqzrcfa.so.1"))
ext = ctypes.CDLL(os.environ.get("QZRCFA_EXT_LIBRARY", "libqzrcfa-ext.so.2"))
ext.qzrcfa_output_bytes.restype = ctypes.c_size_t
rng = np.random.default_rng(7)


def frame(h, w, dtype=np.uint8):
    return rng.integers(0, np.iinfo(dtype).max + 1, (h, w), dtype=dtype)


def blank(shape, dtype, kwargs):  # as demosaic() starts a new array: opaque for bgra32, else 0
    return np.full(shape, np.iinfo(dtype).max if kwargs.get("format") in ("bgra32", qzrcfa.Format.Bgra32) else 0, dtype)


# A member of each family: demosaic()'s arguments, the raw dtype, the export and its
# bitCount (None for the grey members, which take none).
ROUND_TRIPS = [
    (dict(method="nearest"), np.uint8, "QZRCFA_NearestNeighbor_RGGB", 24),
    (dict(method=qzrcfa.Method.NearestNeighbor, pattern="GBRG", order="bottom-up", format="bgra32", rule="MEMBER"), np.uint16,
     "QZRCFA_NearestNeighbor_GBRG_Flip_16Bits", 32),
    (dict(method="nearest", pattern="BGGR", format="grey"), np.uint8, "QZRCFA_NearestNeighbor_BGGR_Gray", None),
    (dict(method="nearest", order=qzrcfa.RowOrder.BottomUp, format=qzrcfa.Format.Grey), np.uint16,
     "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits", None),
    (dict(pattern=qzrcfa.Pattern.GRBG, order="bottom-up"), np.uint8, "QZRCFA_Bilinear_GRBG_Flip", 24),
    (dict(method="edge1", pattern="BGGR", format="bgra32"), np.uint8, "QZRCFA_EdgeSensing1_BGGR", 32),
    (dict(method="edge2", order="bottom-up"), np.uint8, "QZRCFA_EdgeSensing2_RGGB_Flip", 24),
    (dict(method="laplacian", pattern="GBRG"), np.uint8, "QZRCFA_Laplacian_GBRG", 24),
    (dict(method="laplacian2"), np.uint8, "_Z22QZRCFA_Laplacian2_RGGBPhiiS_t", 24),
    (dict(method=qzrcfa.Method.SmoothHue, pattern="BGGR", order="bottom-up"), np.uint8, "QZRCFA_SmoothHue_BGGR_Flip", 24),
]


@pytest.mark.parametrize("kwargs, dtype, name, bits", ROUND_TRIPS, ids=[r[2] for r in ROUND_TRIPS])
def test_gives_the_bytes_of_the_export(kwargs, dtype, name, bits):
    raw = frame(517, 1030, dtype)  # large enough for bands on several threads
    elements = qzrcfa.output_elements(1030, 517, depth=8 * raw.itemsize, **kwargs)
    expected, src = blank(elements, dtype, kwargs), raw.copy()
    ptr = ctypes.POINTER(ctypes.c_uint8 if dtype == np.uint8 else ctypes.c_uint16)
    args = [src.ctypes.data_as(ptr), 1030, 517, expected.ctypes.data_as(ptr)] + ([ctypes.c_ushort(bits)] if bits else [])
    assert getattr(lib, name)(*args) == 0
    shape = raw.shape + ((bits // 8,) if bits else ())
    for threads in (1, 0, 3):
        got = qzrcfa.demosaic(raw, threads=threads, **kwargs)
        assert got.dtype == dtype and got.shape == shape
        assert got.tobytes() == expected[: got.size].tobytes()
    # Into the caller's array: image-shaped, or flat where the member writes past the image.
    out = blank(shape if elements == np.prod(shape) else elements, dtype, kwargs)
    got = qzrcfa.demosaic(raw, out=out, threads=0, **kwargs)
    assert (got is out or got.base is out) and got.shape == shape
    assert out.tobytes() == expected.tobytes() and np.array_equal(raw, src)


class Request(ctypes.Structure):  # qzrcfa_request
    _fields_ = [("size", ctypes.c_size_t), ("samples", ctypes.c_void_p), ("samples_bytes", ctypes.c_size_t),
                ("samples_stride", ctypes.c_ssize_t), ("width", ctypes.c_int), ("height", ctypes.c_int), ("depth", ctypes.c_int),
                ("bits", ctypes.c_int), ("output", ctypes.c_void_p), ("output_bytes", ctypes.c_size_t),
                ("output_stride", ctypes.c_ssize_t), ("output_depth", ctypes.c_int)]
    _fields_ += [(f, ctypes.c_int) for f in ("method", "pattern", "order", "format", "threads", "rule", "reserved")]
    _fields_ += [("gains_used", ctypes.POINTER(ctypes.c_float)), ("packing", ctypes.c_int), ("black", ctypes.c_int * 4),
                 ("gains", ctypes.c_float * 3), ("white_balance", ctypes.c_int), ("matrix", ctypes.c_float * 9),
                 ("curve", ctypes.c_int), ("gamma", ctypes.c_float)]


def by_the_c_interface(raw, kwargs):  # what qzrcfa_demosaic writes for demosaic(raw, **kwargs), compact, and its gains
    dtype = np.dtype(kwargs.get("dtype", raw.dtype))
    q = Request(ctypes.sizeof(Request), raw.ctypes.data, raw.nbytes, 0, raw.shape[1], raw.shape[0], 8 * raw.itemsize,
                kwargs.get("bits", 0), None, 0, 0, 8 * dtype.itemsize, threads=1)
    names = dict(method="bilinear", pattern="RGGB", order="top-down", format="bgr24", rule="default")
    for kind, name in enumerate(names):  # the library's own table of names
        setattr(q, name, ext.qzrcfa_lookup(kind, kwargs.get(name, names[name]).encode()))
    black, wb, curve = kwargs.get("black", 0), kwargs.get("wb"), kwargs.get("curve", "linear")
    q.black[:] = [black] * 4 if np.isscalar(black) else black
    if wb == "auto":
        q.white_balance = 1
    elif wb is not None:
        q.gains[:] = wb
    q.matrix[:] = np.ravel(kwargs.get("matrix", np.zeros(9))).tolist()
    q.curve, q.gamma = (ext.qzrcfa_lookup(6, curve.encode()), 0) if isinstance(curve, str) else (2, curve)
    used = (ctypes.c_float * 3)(1, 1, 1)
    q.gains_used = used
    out = blank(ext.qzrcfa_output_bytes(ctypes.byref(q)) // dtype.itemsize, dtype, kwargs)
    q.output, q.output_bytes = out.ctypes.data, out.nbytes
    assert ext.qzrcfa_demosaic(ctypes.byref(q), None, 0) == 0
    return out, tuple(used)


# Every method on uint16 samples (bits and 8-bit elements too), the general rule on uint8
# where no member serves, and pictures (black level, white balance, colour matrix, curve):
# demosaic()'s arguments and the raw dtype.
GENERAL = [
    (dict(method="nearest", pattern="GRBG", rule="General"), np.uint16),
    (dict(method="nearest", format="grey", dtype=np.uint8, bits=14), np.uint16),
    (dict(), np.uint16),
    (dict(method="edge1", pattern="GBRG", order="bottom-up", format="bgra32", bits=12), np.uint16),
    (dict(method="edge2", pattern="BGGR", dtype=np.uint8, bits=10), np.uint16),
    (dict(method="laplacian", pattern="GRBG", dtype="uint8"), np.uint16),
    (dict(method="laplacian2", order="bottom-up", bits=9), np.uint16),
    (dict(method="smoothhue", pattern="BGGR", rule="GENERAL"), np.uint16),
    (dict(method="gbri", pattern="GBRG", order="bottom-up"), np.uint16),
    (dict(method="edge2", pattern="GBRG", format="bgra32", rule="general"), np.uint8),
    (dict(method="laplacian", pattern="GRBG", black=(200, 180, 190, 600), wb=(2.5, 1, 1.75), bits=12), np.uint16),
    (dict(method="smoothhue", black=64, wb="auto", matrix=((1.6, -0.4, -0.2), (-0.25, 1.5, -0.25), (0.05, -0.6, 1.55)),
          curve="sRGB", dtype=np.uint8, bits=12), np.uint16),
    (dict(method="edge1", pattern="BGGR", order="bottom-up", format="bgra32", matrix=np.eye(3)[::-1] * 1.5, curve=2.2,
          bits=10), np.uint16),
    (dict(method="nearest", black=3, wb=(1.5, 1, 2), curve=1.8), np.uint8),
]


@pytest.mark.parametrize("kwargs, dtype", GENERAL, ids=[" ".join([d.__name__] + [
    f"{a}={'array' if isinstance(v, np.ndarray) else getattr(v, '__name__', v)}" for a, v in k.items()]) for k, d in GENERAL])
def test_gives_the_bytes_of_the_c_interface_and_takes_padded_rows_in_place(kwargs, dtype):
    h, w = 57, 203
    raw = frame(h, w, dtype)
    expected, gains = by_the_c_interface(raw, kwargs)
    got, used = qzrcfa.demosaic(raw, return_gains=True, **kwargs)
    assert got.dtype == expected.dtype and got.tobytes() == expected[: got.size].tobytes() and used == gains
    # The frame as the first columns of wider rows, into the first columns of a wider out.
    wide = frame(h, w + 9, dtype)
    wide[:, :w] = raw
    big = np.full((h, w + 5) + got.shape[2:], 77, got.dtype)
    big[:, :w] = blank(got.shape, got.dtype, kwargs)
    padding = big[:, w:].copy()
    tracemalloc.start()
    try:
        result = qzrcfa.demosaic(wide[:, :w], out=big[:, :w], **kwargs)
        peak = tracemalloc.get_traced_memory()[1]
    finally:
        tracemalloc.stop()
    assert result.base is big and np.array_equal(result, got) and np.array_equal(big[:, w:], padding)
    assert peak < raw.nbytes // 2, "an array was copied"


def pack(samples, packing):  # each row of samples as a packed row's bytes, from the layouts' descriptions
    rows = []
    for s in samples.tolist():
        s += [0] * (-len(s) % (4 if packing == "raw10" else 2))  # a row ending inside a group has the whole group
        if packing == "raw10":  # 4 samples in 5 bytes: bits 9..2 of each, then their bits 1..0, sample 0 lowest
            rows.append(bytes(b for g in zip(*[iter(s)] * 4) for b in [v >> 2 for v in g] + [sum((v & 3) << 2 * i for i, v in enumerate(g))]))
        elif packing == "raw12":  # 2 samples in 3 bytes: bits 11..4 of each, then their bits 3..0, sample 0 low
            rows.append(bytes(b for a, c in zip(s[::2], s[1::2]) for b in (a >> 4, c >> 4, a & 15 | (c & 15) << 4)))
        elif packing == "12packed":  # bits 11..4 of sample 0, the low nibbles of samples 0 and 1, bits 11..4 of sample 1
            rows.append(bytes(b for a, c in zip(s[::2], s[1::2]) for b in (a >> 4, a & 15 | (c & 15) << 4, c >> 4)))
        else:  # 10p, 12p: one little-endian bit stream, each sample least significant bit first, to the byte of its last bit
            bits, n = int(packing[:2]), len(samples[0])
            rows.append(sum(v << bits * i for i, v in enumerate(s[:n])).to_bytes(-(-n * bits // 8), "little"))
    return rows


# Each packing (as pack() and as demosaic() name it), its bits, a width that ends inside a
# packing group, and how raw is given.
PACKED = [
    ("raw10", "RAW10", 10, 37, "2-D padded"),
    ("raw12", "mipi-raw12", 12, 37, "bytes"),
    ("10p", "Mono10p", 10, 38, "1-D with a stride"),
    ("12p", qzrcfa.Packing.P12, 12, 37, "memoryview"),
    ("12packed", "12Packed", 12, 35, "2-D padded"),
]


@pytest.mark.parametrize("layout, packing, bits, w, given", PACKED, ids=[f"{r[0]} {r[4]}" for r in PACKED])
def test_packed_rows_give_the_bytes_of_their_samples(layout, packing, bits, w, given):
    h, picture = 9, dict(method="laplacian", pattern="GBRG", black=(30, 40, 50, 60))
    samples = rng.integers(0, 1 << bits, (h, w), dtype=np.uint16)
    rows = pack(samples, layout)
    row = len(rows[0])
    if given == "2-D padded":
        wide = np.full((h, row + 7), 0xEE, np.uint8)
        wide[:, :row] = np.frombuffer(b"".join(rows), np.uint8).reshape(h, row)
        raw, frame_args = wide[:, :row], dict(width=w)
    else:
        stride = row + 3 if given == "1-D with a stride" else row
        data = b"".join(r + b"\xee" * (stride - row) for r in rows)
        raw = dict(bytes=data, memoryview=memoryview(bytearray(data))).get(given, np.frombuffer(data, np.uint8))
        frame_args = dict(width=w, height=h, bits=bits) if given == "bytes" else dict(width=w, height=h, stride=stride)
    gains = qzrcfa.auto_white_balance(samples, "GBRG", bits=bits, black=picture["black"])
    assert qzrcfa.auto_white_balance(raw, "GBRG", packing=packing, black=picture["black"], **frame_args) == gains
    want = qzrcfa.demosaic(samples, bits=bits, wb=gains, **picture)
    got, used = qzrcfa.demosaic(raw, packing=packing, wb="auto", return_gains=True, **picture, **frame_args)
    assert used == gains and got.dtype == np.uint16 and got.tobytes() == want.tobytes()


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_gbri_is_the_same_on_every_thread_count_and_keeps_a_flat_field(dtype):
    raw = frame(517, 1030, dtype)
    one = qzrcfa.demosaic(raw, method="gbri", pattern="GRBG", format="bgra32", threads=1)
    assert one.dtype == dtype and one.shape == (517, 1030, 4) and (one[..., 3] == np.iinfo(dtype).max).all()
    assert qzrcfa.demosaic(raw, method=qzrcfa.Method.Gbri, pattern="GRBG", format="bgra32", threads=0).tobytes() == one.tobytes()
    flat = qzrcfa.demosaic(np.full((40, 30), 1234 % np.iinfo(dtype).max, dtype), method="gbri", order="bottom-up")
    assert (flat == 1234 % np.iinfo(dtype).max).all()


def test_sizes():
    assert qzrcfa.minimum_size("laplacian") == (4, 4) and qzrcfa.minimum_size("edge2", "BGGR") == (0, 0)
    assert qzrcfa.minimum_size("edge2", "BGGR", rule="general") != (0, 0)
    assert qzrcfa.minimum_size("nearest", format="grey", depth=16) == (4, 2)  # the member; the general rule below
    assert qzrcfa.minimum_size("nearest", format="grey", depth=16, output_depth=8) == (2, 2)
    assert qzrcfa.output_elements(10, 8, "nearest", order="bottom-up", format="grey", depth=16) == 82
    assert qzrcfa.output_elements(10, 8, "nearest", order="bottom-up", format="grey", depth=16, rule="general") == 80
    assert qzrcfa.output_elements(10, 8, "nearest", order="bottom-up", format="grey", depth=16, output_depth=8) == 80
    assert qzrcfa.output_elements(3, 3, "laplacian") == 0


RAW, SHARED, RAW12 = frame(8, 10), frame(1, 200), bytes(90)  # RAW12: 10 x 6 in raw12 rows
REFUSALS = [  # demosaic()'s arguments (raw=RAW unless given; call= another function), the exception, its message
    # The checked interface's refusals.
    (dict(method="edge2", pattern="BGGR"), ValueError, "no member of edge2 for BGGR top-down: edge2 has RGGB top-down and RGGB bottom-up"),
    (dict(raw=frame(8, 10, np.uint16), rule="member"), ValueError, "no member of bilinear takes 16-bit samples (the general rule does"),
    (dict(raw=frame(8, 10, np.uint16), method="nearest", rule=qzrcfa.Rule.Member, dtype=np.uint8), ValueError,
     "the members write elements of their samples' depth, not 8-bit from 16-bit samples"),
    (dict(raw=frame(8, 10, np.uint16), bits=8), ValueError, "bits 8 is outside 9..16"),
    (dict(raw=frame(3, 3), method="laplacian"), ValueError, "frame size 3x3 is below the 4x4 minimum"),
    (dict(threads=-1), ValueError, "thread count -1 is negative"),
    (dict(threads=1025), ValueError, "thread count 1025 is above the limit of 1024"),
    (dict(out=np.full((8, 10, 3), 7, np.uint16)), ValueError, "16-bit output elements from 8-bit samples"),
    (dict(dtype=np.uint16), ValueError, "16-bit output elements from 8-bit samples"),
    (dict(out=np.full(239, 7, np.uint8)), ValueError, "output holds 239 bytes, 10x8 bgr24 of 8-bit elements needs 240"),
    (dict(raw=frame(8, 10, np.uint16), out=np.full((8, 12), 7, np.uint16)[:, :10], method="nearest", order="bottom-up",
          format="grey"), ValueError, "with rows 24 bytes apart needs 192 (the image and the 2 elements after it"),
    (dict(raw=SHARED[0, :80].reshape(8, 10), out=SHARED[0, 40:120].reshape(8, 10), method="nearest", format="grey"),
     ValueError, "the raw frame and the output buffer overlap"),
    # Names, types and arrays.
    (dict(method="fast"), ValueError, "unknown method 'fast' (one of 'nearest', 'bilinear'"),
    (dict(pattern=2), TypeError, "pattern must be a qzrcfa.Pattern or one of its names ('RGGB'"),
    (dict(threads=2.0), TypeError, "threads must be an int, not float"),
    (dict(threads=True), TypeError, "threads must be an int, not bool"),
    (dict(rule="fast"), ValueError, "unknown rule 'fast' (one of 'default', 'member', 'general')"),
    (dict(bits=12), ValueError, "bits is for uint16 samples; raw holds uint8"),
    (dict(dtype=np.float32), TypeError, "dtype must be numpy.uint8 or numpy.uint16 (or its name), not float32"),
    (dict(dtype=RAW), TypeError, "dtype must be numpy.uint8 or numpy.uint16 (or its name), not numpy.ndarray"),
    (dict(raw=frame(8, 10, np.uint16), out=np.full((8, 10, 3), 7, np.uint16), dtype=np.uint8), ValueError,
     "dtype uint8 disagrees with out's uint16 elements"),
    (dict(methd="laplacian"), TypeError, "demosaic() got an unexpected keyword argument 'methd' (did you mean 'method'?)"),
    (dict(threads=2**40), ValueError, "threads 1099511627776 does not fit a C int"),
    (dict(raw=RAW.tolist()), TypeError, "raw must be a numpy array of uint8 or uint16, not list"),
    (dict(raw=RAW.astype(np.float32)), TypeError, "raw must hold uint8 or uint16 in the machine's byte order, not float32"),
    (dict(raw=RAW.astype(">u2"), method="nearest"), TypeError, "not >u2"),
    (dict(raw=RAW.ravel()), ValueError, "raw must be 2-D (height, width), not 1-D with shape (80,)"),
    (dict(raw=RAW[:, ::2]), ValueError, "raw's rows are not contiguous (strides (10, 2) for shape (8, 5) of 1-byte elements"),
    (dict(raw=RAW[::-1]), ValueError, "raw's rows run backwards (a row stride of -10 bytes"),
    (dict(raw=np.broadcast_to(RAW[0], (8, 10))), ValueError, "raw's rows are all one row"),
    (dict(raw=np.frombuffer(bytearray(161), np.uint16, offset=1).reshape(8, 10)), ValueError,
     "raw is not aligned to its 2-byte uint16 elements"),
    (dict(raw=frame(8, 10, np.uint16), out=np.frombuffer(bytearray(481), np.uint16, offset=1).reshape(8, 10, 3)), ValueError,
     "out is not aligned to its 2-byte uint16 elements"),
    (dict(out=np.full((8, 10, 4), 7, np.uint8)), ValueError, "out has shape (8, 10, 4); bgr24 output of a 10x8 frame takes (8, 10, 3)"),
    (dict(out=np.full((8, 10, 3), 7, np.int16)), TypeError, "out must hold uint8 or uint16"),
    (dict(out=np.full((8, 10, 6), 7, np.uint8)[:, :, ::2]), ValueError, "out's rows are not contiguous"),
    (dict(out=np.frombuffer(bytes(240), np.uint8).reshape(8, 10, 3)), ValueError, "out is read-only"),
    # Packed rows, black level, white balance, colour matrix and curve.
    (dict(raw=RAW12, packing="raw14", width=10, height=6), ValueError,
     "unknown packing 'raw14' (one of 'none', 'raw10', 'raw12', '10p', '12p', '12packed')"),
    (dict(raw=RAW12[:-1], packing="raw12", width=10, height=6), ValueError, "raw frame holds 89 bytes, 10x6 of raw12 rows needs 90"),
    (dict(raw=RAW12, packing="raw12", width=4000, height=3000), ValueError, "raw frame holds 90 bytes, 4000x3000 of raw12 rows needs 18000000"),
    (dict(raw=RAW12, packing="raw12", width=10, height=6, stride=14), ValueError, "the raw frame's stride 14 is below a row's 15 bytes"),
    (dict(raw=np.zeros((6, 14), np.uint8), packing="12p", width=10), ValueError, "the raw frame's stride 14 is below a row's 15 bytes"),
    (dict(raw=RAW12, packing="raw12", width=10, height=6, bits=10), ValueError, "bits 10 given with raw12, whose samples have 12"),
    (dict(raw=RAW12, packing="raw12", width=10), TypeError, "a 1-D raw of raw12 rows needs width= and height="),
    (dict(raw=frame(6, 15, np.uint16), packing="raw12", width=10), TypeError, "raw of raw12 rows must hold their bytes as uint8, not uint16"),
    (dict(raw=memoryview(bytearray(180))[::2], packing="raw12", width=10, height=6), ValueError, "raw's bytes are not one run of memory"),
    (dict(width=10), ValueError, "width, height and stride are for packed rows (packing=)"),
    (dict(raw=frame(8, 10, np.uint16), bits=12, black=4096), ValueError, "black level 4096 is outside 0..4095 of 12-bit samples"),
    (dict(raw=RAW12, packing="10p", width=10, height=6, black=(0, 0, 0, 1024)), ValueError, "black level 1024 is outside 0..1023"),
    (dict(black=(1, 2, 3)), ValueError, "black must be one int or four (row 0 column 0, row 0 column 1, row 1 column 0, row 1 column 1)"),
    (dict(wb=(1, float("nan"), 1)), ValueError, "gain nan is not a number above 0 and at most 64"),
    (dict(wb=(-1, 1, 1)), ValueError, "gain -1.000000 is not a number above 0 and at most 64"),
    (dict(wb=(1, 1, 65)), ValueError, "gain 65.000000 is not a number above 0 and at most 64"),
    (dict(wb=(0, 0, 0)), ValueError, "wb gains 0, 0, 0: each gain must be above 0 and at most 64"),
    (dict(wb="grey"), ValueError, "wb must be three gains (r, g, b) or 'auto', not 'grey'"),
    (dict(raw=np.full((8, 10), 255, np.uint8), wb="auto", out=np.full((8, 10, 3), 7, np.uint8)), ValueError,
     "automatic white balance found no unsaturated sample of some colour in the frame"),
    (dict(call=qzrcfa.auto_white_balance, raw=np.full((8, 10), 255, np.uint8)), ValueError,
     "automatic white balance found no unsaturated sample of some colour in the frame"),
    (dict(matrix=np.eye(2)), ValueError, "matrix must be 3 x 3"),
    (dict(matrix=[[1, 0, 0], [0, float("inf"), 0], [0, 0, 1]]), ValueError, "colour matrix entry inf is not a number from -64 to 64"),
    (dict(curve="log"), ValueError, "unknown curve 'log' (one of 'linear', 'srgb', 'gamma')"),
    (dict(curve="gamma"), ValueError, "curve takes a gamma as the number itself"),
    (dict(curve=11), ValueError, "gamma 11.000000 is not a number above 0 and at most 10"),
]


@pytest.mark.parametrize("kwargs, error, message", REFUSALS, ids=[r[2] for r in REFUSALS])
def test_refusals(kwargs, error, message):
    kwargs = {"raw": RAW, **kwargs}
    call = kwargs.pop("call", qzrcfa.demosaic)
    before = [a.copy() for a in (kwargs["raw"], kwargs.get("out"), SHARED) if isinstance(a, np.ndarray)]
    tracemalloc.start()
    try:
        with pytest.raises(error, match=re.escape(message)) as refusal:
            call(**kwargs)
        assert tracemalloc.get_traced_memory()[1] < 1 << 20, "a refused call made an output"
    finally:
        tracemalloc.stop()
    assert len(str(refusal.value)) < 300 and "array([" not in str(refusal.value)  # one clear line, no array in it
    after = [a for a in (kwargs["raw"], kwargs.get("out"), SHARED) if isinstance(a, np.ndarray)]
    assert all(np.array_equal(a, b) for a, b in zip(before, after)), "a refused call wrote"


def test_the_signatures_name_what_the_functions_take():
    for function, args in ((qzrcfa.demosaic, (RAW,)), (qzrcfa.auto_white_balance, (RAW,)), (qzrcfa.output_elements, (10, 8)),
                           (qzrcfa.minimum_size, ())):
        with pytest.raises(TypeError) as refusal:
            function(*args, bogus=1)
        assert str(refusal.value).endswith("; it takes " + ", ".join(inspect.signature(function).parameters))


def test_the_gil_is_released_during_a_call():
    raw, gaps, done = frame(3000, 4000), [], threading.Event()

    def tick():  # records every stretch of more than 2 ms in which it could not run
        last = time.perf_counter()
        while not done.is_set():
            now = time.perf_counter()
            if now - last > 0.002:
                gaps.append((last, now))
            last = now

    interval, ticker = sys.getswitchinterval(), threading.Thread(target=tick)
    sys.setswitchinterval(0.0005)
    ticker.start()
    try:
        for _ in range(3):  # the machine is shared: a second chance against its own stalls
            start = time.perf_counter()
            qzrcfa.demosaic(raw, "smoothhue")
            end = time.perf_counter()
            time.sleep(0.01)
            stood = max([min(b, end) - max(a, start) for a, b in gaps if b > start and a < end], default=0)
            if stood < (end - start) / 2:
                break
        else:
            pytest.fail(f"a second thread stood still for {stood:.3f} s of a {end - start:.3f} s call")
    finally:
        done.set()
        ticker.join()
        sys.setswitchinterval(interval)
