# The Python module: the bytes of the library's exports and of its C interface (called
# through ctypes) for a member of each family and every method's general rule, arrays
# used in place, every refusal as its exception, and the GIL released.
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
    _fields_ += [(f, ctypes.c_int) for f in ("method", "pattern", "order", "format", "threads", "rule")]


def by_the_c_interface(raw, kwargs):  # what qzrcfa_demosaic writes for demosaic(raw, **kwargs), compact
    dtype = np.dtype(kwargs.get("dtype", raw.dtype))
    q = Request(ctypes.sizeof(Request), raw.ctypes.data, raw.nbytes, 0, raw.shape[1], raw.shape[0], 8 * raw.itemsize,
                kwargs.get("bits", 0), None, 0, 0, 8 * dtype.itemsize, threads=1,
                rule=["default", "member", "general"].index(kwargs.get("rule", "default").lower()))
    for kind, name in enumerate(("method", "pattern", "order", "format")):  # the library's own table of names
        setattr(q, name, ext.qzrcfa_lookup(kind, kwargs.get(name, dict(method="bilinear", pattern="RGGB",
                                                                         order="top-down", format="bgr24")[name]).encode()))
    out = blank(ext.qzrcfa_output_bytes(ctypes.byref(q)) // dtype.itemsize, dtype, kwargs)
    q.output, q.output_bytes = out.ctypes.data, out.nbytes
    assert ext.qzrcfa_demosaic(ctypes.byref(q), None, 0) == 0
    return out


# Every method on uint16 samples (bits and 8-bit elements too), and the general rule on
# uint8 where no member serves: demosaic()'s arguments and the raw dtype.
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
]


@pytest.mark.parametrize("kwargs, dtype", GENERAL,
                         ids=[" ".join([d.__name__] + [f"{a}={getattr(v, '__name__', v)}" for a, v in k.items()]) for k, d in GENERAL])
def test_gives_the_bytes_of_the_c_interface_and_takes_padded_rows_in_place(kwargs, dtype):
    h, w = 57, 203
    raw = frame(h, w, dtype)
    expected = by_the_c_interface(raw, kwargs)
    got = qzrcfa.demosaic(raw, **kwargs)
    assert got.dtype == expected.dtype and got.tobytes() == expected[: got.size].tobytes()
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


RAW, SHARED = frame(8, 10), frame(1, 200)
REFUSALS = [  # demosaic()'s arguments (raw=RAW unless given), the exception, its message
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
    (dict(out=np.full((8, 10, 4), 7, np.uint8)), ValueError, "out has shape (8, 10, 4); bgr24 output of raw of shape (8, 10) takes (8, 10, 3)"),
    (dict(out=np.full((8, 10, 3), 7, np.int16)), TypeError, "out must hold uint8 or uint16"),
    (dict(out=np.full((8, 10, 6), 7, np.uint8)[:, :, ::2]), ValueError, "out's rows are not contiguous"),
    (dict(out=np.frombuffer(bytes(240), np.uint8).reshape(8, 10, 3)), ValueError, "out is read-only"),
]


@pytest.mark.parametrize("kwargs, error, message", REFUSALS, ids=[r[2] for r in REFUSALS])
def test_refusals(kwargs, error, message):
    kwargs = {"raw": RAW, **kwargs}
    before = [a.copy() for a in (kwargs["raw"], kwargs.get("out"), SHARED) if isinstance(a, np.ndarray)]
    with pytest.raises(error, match=re.escape(message)) as refusal:
        qzrcfa.demosaic(**kwargs)
    assert len(str(refusal.value)) < 300 and "array([" not in str(refusal.value)  # one clear line, no array in it
    after = [a for a in (kwargs["raw"], kwargs.get("out"), SHARED) if isinstance(a, np.ndarray)]
    assert all(np.array_equal(a, b) for a, b in zip(before, after)), "a refused call wrote"


def test_the_signatures_name_what_the_functions_take():
    for function, args in ((qzrcfa.demosaic, (RAW,)), (qzrcfa.output_elements, (10, 8)), (qzrcfa.minimum_size, ())):
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
