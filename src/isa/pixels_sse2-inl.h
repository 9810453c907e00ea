// Pixel layer of the x86-64 baseline (SSE2): sixteen byte lanes.
//
// A pixel layer moves lanes between planes of colour (one byte, or 16-bit element, of
// every pixel of a block) and interleaved pixels of three or four elements, and widens
// and narrows lanes for the kernels that compute in 16 bits. The kernels above it are
// written once for every instruction set. Included inside the instruction set's
// namespace.

#include "isa/x86_128-inl.h"

constexpr int kLanes = 16;  // columns of one block
typedef std::uint8_t Bytes __attribute__((vector_size(16)));
using GreyVector = Bytes;  // the vector grey runs on
typedef std::uint16_t Words __attribute__((vector_size(16)));  // kLanes / 2 lanes
typedef std::int16_t Wide __attribute__((vector_size(16)));  // kLanes / 2 lanes
typedef float Floats __attribute__((vector_size(16)));  // kLanes / 4 lanes

// Interleaved pixels of one block and a mask of the bytes a store may change.
template <int P>
struct PixelMask {
    __m128i v[P];
};

template <int P>
QZRCFA_INLINE void interleave(Bytes b, Bytes g, Bytes r, Bytes a, __m128i (&out)[P]) {
    __m128i px[4];
    interleave4_128((__m128i)b, (__m128i)g, (__m128i)r, (__m128i)a, px);
    if constexpr (P == 4) {
        for (int i = 0; i < 4; ++i) out[i] = px[i];
    } else {
        squeeze3_128(px, out);
    }
}

// The block's pixels, whole: element 3 of four-byte pixels becomes 255 when `white`,
// else keeps what it held. With `stream` (three-byte or white pixels, `out` aligned to
// kLanes bytes) the stores bypass the cache.
template <int P>
QZRCFA_INLINE void store_pixels(std::uint8_t* out, Bytes b, Bytes g, Bytes r, bool white, bool stream = false) {
    const Bytes a = white ? ~Bytes{} : Bytes{};
    __m128i px[P];
    interleave<P>(b, g, r, a, px);
    if (stream) {
        for (int i = 0; i < P; ++i) _mm_stream_si128(reinterpret_cast<__m128i*>(out + 16 * i), px[i]);
    } else if (P == 4 && !white) {
        const __m128i keep = _mm_set1_epi32(int(0xFF000000u));
        for (int i = 0; i < P; ++i) store_128(out + 16 * i, _mm_or_si128(_mm_and_si128(load_128(out + 16 * i), keep), px[i]));
    } else {
        for (int i = 0; i < P; ++i) store_128(out + 16 * i, px[i]);
    }
}

// Masks of the elements a store writes, from one byte mask per colour plane.
template <int P>
QZRCFA_INLINE PixelMask<P> pixel_mask(Bytes mb, Bytes mg, Bytes mr) {
    PixelMask<P> m;
    interleave<P>(mb, mg, mr, Bytes{}, m.v);
    return m;
}

// Only the bytes the mask selects; the others keep what they held.
template <int P>
QZRCFA_INLINE void store_masked(std::uint8_t* out, Bytes b, Bytes g, Bytes r, const PixelMask<P>& m) {
    __m128i px[P];
    interleave<P>(b, g, r, Bytes{}, px);
    for (int i = 0; i < P; ++i) {
        const __m128i old = load_128(out + 16 * i);
        store_128(out + 16 * i, _mm_or_si128(_mm_and_si128(px[i], m.v[i]), _mm_andnot_si128(m.v[i], old)));
    }
}

// Bytes p[P * k] of the block's lanes k, reading nothing outside p[0] .. p[P * (kLanes - 1)].
template <int P>
QZRCFA_INLINE Bytes gather(const std::uint8_t* p) {
    if constexpr (P == 4) {
        return (Bytes)gather4_128(p);
    } else {
        return (Bytes)gather3_128(p);
    }
}

// kLanes / 2 pixels of P 16-bit elements; element 3 of four-element pixels kept.
template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, bool white = false) {
    store_pixels16_128<P>(out, (__m128i)b, (__m128i)g, (__m128i)r, white);
}

// kLanes / 2 pixels of P 16-bit elements, element 3 of four-element pixels from `fourth`.
template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, Words fourth) {
    store_pixels16_128<P>(out, (__m128i)b, (__m128i)g, (__m128i)r, (__m128i)fourth, false);
}

// The high 16 bits of the lanes' unsigned 32-bit products.
QZRCFA_INLINE Words mul_high(Words a, Words b) { return (Words)_mm_mulhi_epu16((__m128i)a, (__m128i)b); }

// The mean of two lanes rounded up, (a + b + 1) >> 1, without overflow.
QZRCFA_INLINE Bytes mean_up(Bytes a, Bytes b) { return (Bytes)_mm_avg_epu8((__m128i)a, (__m128i)b); }
QZRCFA_INLINE Words mean_up(Words a, Words b) { return (Words)_mm_avg_epu16((__m128i)a, (__m128i)b); }

// a / b for float lanes that hold integers 0 .. 255, bit for bit what IEEE single
// division gives: +0 for 0 / b, +inf for a / 0, a NaN for 0 / 0. A pixel layer computes
// it without the divider where that makes the kernel using it faster, and divides
// everywhere else. SSE2 divides: without fused multiply-add an exact residual takes a
// split of the quotient, and that sequence (fifteen operations) left the three-byte
// colour pass over a third slower than divps on an AMD EPYC (Zen 5).
QZRCFA_INLINE Floats quotient(Floats a, Floats b) { return a / b; }
