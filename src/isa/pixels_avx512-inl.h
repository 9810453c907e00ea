// Pixel layer of AVX-512 (BW, with VL): sixty-four byte lanes. See pixels_sse2-inl.h for
// what a pixel layer does. Stores that keep some elements are masked stores, which never
// read the output. A masked store to a line the cache does not hold waits for memory
// far longer than a whole one; the column kernels fetch the lines of their stores ahead
// (kernels-inl.h, fetch_ahead), and so, for whole four-byte pixels that keep their
// fourth element, the masked store beat loading, blending and storing the whole vector:
// on an AMD EPYC (Zen 5), edge sensing's 4000 x 3000 frames took 2.3 to 3.2 ms masked,
// 2.8 to 3.7 ms blended, measured alternately on each core. Where the processor has VBMI
// (byte permutes across the whole vector, compiled in when __AVX512VBMI__ is defined) a
// plane of three-byte pixels moves in two permutes per vector; without it, in byte
// shuffles within 128-bit lanes and a rearrangement of the lanes.

#include "isa/x86_128-inl.h"

constexpr int kLanes = 64;
typedef std::uint8_t Bytes __attribute__((vector_size(64)));
typedef std::uint16_t Words __attribute__((vector_size(64)));
typedef std::int16_t Wide __attribute__((vector_size(64)));  // kLanes / 2 lanes
typedef float Floats __attribute__((vector_size(64)));  // kLanes / 4 lanes
// Grey's loads, one column apart, cross a cache line in every 64-byte vector but only in
// every other 32-byte one: in 32-byte vectors its 4000 x 3000 frames took 0.55 ms
// instead of 1.0 (AMD EPYC, Zen 5), where the colour kernels gain from the full width.
typedef std::uint8_t GreyVector __attribute__((vector_size(32)));

template <int P>
struct PixelMask {
    __mmask64 v[P];
};

QZRCFA_INLINE __m512i load_512(const void* p) { return _mm512_loadu_si512(p); }
QZRCFA_INLINE void store_512(void* p, __m512i v) { _mm512_storeu_si512(p, v); }

template <int N>
struct ByteTable {
    alignas(64) std::uint8_t index[N][64];
};

// Element e of pixel (64 v + i) / 3 sits at byte i of output vector v. For each v: the
// lane of the plane that byte comes from, and (for the VBMI form) bit 6 set where it
// comes from the green plane.
constexpr ByteTable<3> make_interleave3_permute() {
    ByteTable<3> t{};
    for (int v = 0; v < 3; ++v)
        for (int i = 0; i < 64; ++i) {
            const int n = 64 * v + i;
            t.index[v][i] = std::uint8_t(n / 3 + (n % 3 == 1 ? 64 : 0));
        }
    return t;
}
inline constexpr ByteTable<3> kInterleave3Permute = make_interleave3_permute();

constexpr __mmask64 element_bits(int P, int first_byte, int element) {
    __mmask64 m = 0;
    for (int i = 0; i < 64; ++i)
        if ((first_byte + i) % P == element) m |= __mmask64(1) << i;
    return m;
}

// The red bytes of the three output vectors of three-byte pixels.
inline constexpr __mmask64 kRedOf3[3] = {element_bits(3, 0, 2), element_bits(3, 64, 2), element_bits(3, 128, 2)};

// In-lane byte shuffles for sixteen pixels per 128-bit lane: [output][colour][byte].
struct Interleave3Shuffle {
    alignas(64) std::uint8_t index[3][3][64];
};
constexpr Interleave3Shuffle make_interleave3_shuffle() {
    Interleave3Shuffle t{};
    for (int v = 0; v < 3; ++v)
        for (int colour = 0; colour < 3; ++colour)
            for (int i = 0; i < 64; ++i) {
                const int byte = 16 * v + i % 16;
                t.index[v][colour][i] = std::uint8_t(byte % 3 == colour ? byte / 3 : 0x80);
            }
    return t;
}
inline constexpr Interleave3Shuffle kInterleave3Shuffle = make_interleave3_shuffle();

QZRCFA_INLINE __m512i table(const std::uint8_t* index) { return _mm512_load_si512(index); }

template <int P>
QZRCFA_INLINE void interleave(Bytes b, Bytes g, Bytes r, Bytes a, __m512i (&out)[P]) {
    const __m512i vb = (__m512i)b, vg = (__m512i)g, vr = (__m512i)r;
    if constexpr (P == 3) {
#if defined(__AVX512VBMI__)
        for (int v = 0; v < 3; ++v) {
            const __m512i index = table(kInterleave3Permute.index[v]);
            const __m512i bg = _mm512_permutex2var_epi8(vb, index, vg);
            out[v] = _mm512_mask_permutexvar_epi8(bg, kRedOf3[v], index, vr);
        }
#else
        // o[v]: in each 128-bit lane L, the v-th third of the 48 bytes of pixels 16 L ..
        // 16 L + 15. The output is lane 0's thirds, then lane 1's, and so on.
        __m512i o[3];
        for (int v = 0; v < 3; ++v) {
            const auto& index = kInterleave3Shuffle.index[v];
            o[v] = _mm512_or_si512(_mm512_or_si512(_mm512_shuffle_epi8(vb, table(index[0])), _mm512_shuffle_epi8(vg, table(index[1]))),
                                   _mm512_shuffle_epi8(vr, table(index[2])));
        }
        const __mmask8 middle = 0x30;
        out[0] = _mm512_mask_permutexvar_epi64(_mm512_permutex2var_epi64(o[0], _mm512_setr_epi64(0, 1, 8, 9, 0, 0, 2, 3), o[1]),
                                               middle, _mm512_setr_epi64(0, 0, 0, 0, 0, 1, 0, 0), o[2]);
        out[1] = _mm512_mask_permutexvar_epi64(_mm512_permutex2var_epi64(o[1], _mm512_setr_epi64(2, 3, 10, 11, 0, 0, 4, 5), o[2]),
                                               middle, _mm512_setr_epi64(0, 0, 0, 0, 4, 5, 0, 0), o[0]);
        out[2] = _mm512_mask_permutexvar_epi64(_mm512_permutex2var_epi64(o[2], _mm512_setr_epi64(4, 5, 14, 15, 0, 0, 6, 7), o[0]),
                                               middle, _mm512_setr_epi64(0, 0, 0, 0, 6, 7, 0, 0), o[1]);
#endif
    } else {
        const __m512i va = (__m512i)a;
        const __m512i bg_lo = _mm512_unpacklo_epi8(vb, vg), bg_hi = _mm512_unpackhi_epi8(vb, vg);
        const __m512i ra_lo = _mm512_unpacklo_epi8(vr, va), ra_hi = _mm512_unpackhi_epi8(vr, va);
        // q0: pixels 0-3 | 16-19 | 32-35 | 48-51, q1: 4-7 | ..., q2: 8-11 | ..., q3: 12-15 | ...
        const __m512i q0 = _mm512_unpacklo_epi16(bg_lo, ra_lo), q1 = _mm512_unpackhi_epi16(bg_lo, ra_lo);
        const __m512i q2 = _mm512_unpacklo_epi16(bg_hi, ra_hi), q3 = _mm512_unpackhi_epi16(bg_hi, ra_hi);
        // A transposition of 128-bit lanes: output vector k takes lane k of q0 .. q3.
        const __m512i low_halves = _mm512_setr_epi64(0, 1, 2, 3, 8, 9, 10, 11);
        const __m512i high_halves = _mm512_setr_epi64(4, 5, 6, 7, 12, 13, 14, 15);
        const __m512i even_lanes = _mm512_setr_epi64(0, 1, 4, 5, 8, 9, 12, 13);
        const __m512i odd_lanes = _mm512_setr_epi64(2, 3, 6, 7, 10, 11, 14, 15);
        const __m512i t0 = _mm512_permutex2var_epi64(q0, low_halves, q1), t1 = _mm512_permutex2var_epi64(q0, high_halves, q1);
        const __m512i t2 = _mm512_permutex2var_epi64(q2, low_halves, q3), t3 = _mm512_permutex2var_epi64(q2, high_halves, q3);
        out[0] = _mm512_permutex2var_epi64(t0, even_lanes, t2);
        out[1] = _mm512_permutex2var_epi64(t0, odd_lanes, t2);
        out[2] = _mm512_permutex2var_epi64(t1, even_lanes, t3);
        out[3] = _mm512_permutex2var_epi64(t1, odd_lanes, t3);
    }
}

template <int P>
QZRCFA_INLINE void store_pixels(std::uint8_t* out, Bytes b, Bytes g, Bytes r, bool white, bool stream = false) {
    __m512i px[P];
    interleave<P>(b, g, r, white ? ~Bytes{} : Bytes{}, px);
    if (stream) {
        for (int i = 0; i < P; ++i) _mm512_stream_si512(reinterpret_cast<__m512i*>(out + 64 * i), px[i]);
    } else if (P == 4 && !white) {
        for (int i = 0; i < P; ++i) _mm512_mask_storeu_epi8(out + 64 * i, 0x7777777777777777ull, px[i]);
    } else {
        for (int i = 0; i < P; ++i) store_512(out + 64 * i, px[i]);
    }
}

template <int P>
QZRCFA_INLINE PixelMask<P> pixel_mask(Bytes mb, Bytes mg, Bytes mr) {
    __m512i px[P];
    interleave<P>(mb, mg, mr, Bytes{}, px);
    PixelMask<P> m;
    for (int i = 0; i < P; ++i) m.v[i] = _mm512_movepi8_mask(px[i]);
    return m;
}

template <int P>
QZRCFA_INLINE void store_masked(std::uint8_t* out, Bytes b, Bytes g, Bytes r, const PixelMask<P>& m) {
    __m512i px[P];
    interleave<P>(b, g, r, Bytes{}, px);
    for (int i = 0; i < P; ++i) _mm512_mask_storeu_epi8(out + 64 * i, m.v[i], px[i]);
}

constexpr ByteTable<2> make_gather3_permute() {
    ByteTable<2> t{};
    for (int k = 0; k < 64; ++k) {
        t.index[0][k] = std::uint8_t(3 * k < 128 ? 3 * k : 0);
        t.index[1][k] = std::uint8_t(3 * k < 128 ? 0 : 3 * k - 128);
    }
    return t;
}
inline constexpr ByteTable<2> kGather3Permute = make_gather3_permute();

template <int P>
QZRCFA_INLINE Bytes gather(const std::uint8_t* p) {
    if constexpr (P == 4) {
        // Bytes 0 .. 252: the last load stops at byte 252.
        const __m128i q0 = _mm512_cvtepi32_epi8(load_512(p));
        const __m128i q1 = _mm512_cvtepi32_epi8(load_512(p + 64));
        const __m128i q2 = _mm512_cvtepi32_epi8(load_512(p + 128));
        const __m128i q3 = _mm512_cvtepi32_epi8(_mm512_maskz_loadu_epi8((__mmask64(1) << 61) - 1, p + 192));
        __m512i v = _mm512_castsi128_si512(q0);
        v = _mm512_inserti32x4(v, q1, 1);
        v = _mm512_inserti32x4(v, q2, 2);
        return (Bytes)_mm512_inserti32x4(v, q3, 3);
    } else {
#if defined(__AVX512VBMI__)
        // Bytes 0 .. 189: lanes 0 .. 42 from the first 128 bytes, 43 .. 63 from the rest.
        const __m512i low = _mm512_permutex2var_epi8(load_512(p), table(kGather3Permute.index[0]), load_512(p + 64));
        const __m512i high = _mm512_maskz_loadu_epi8((__mmask64(1) << 62) - 1, p + 128);
        return (Bytes)_mm512_mask_permutexvar_epi8(low, ~((__mmask64(1) << 43) - 1), table(kGather3Permute.index[1]), high);
#else
        __m512i v = _mm512_castsi128_si512(gather3_128(p));
        v = _mm512_inserti32x4(v, gather3_128(p + 48), 1);
        v = _mm512_inserti32x4(v, gather3_128(p + 96), 2);
        return (Bytes)_mm512_inserti32x4(v, gather3_128(p + 144), 3);
#endif
    }
}

// Word n of output vector v is element n % P of pixel n / P (n counted from 32 v).
struct WordTable {
    alignas(64) std::uint16_t index[4][32];
};
template <int P>
constexpr WordTable make_interleave16() {
    WordTable t{};
    for (int v = 0; v < P; ++v)
        for (int i = 0; i < 32; ++i) {
            const int n = 32 * v + i;
            t.index[v][i] = std::uint16_t(n / P + (n % P == 1 ? 32 : 0));
        }
    return t;
}
template <int P>
inline constexpr WordTable kInterleave16 = make_interleave16<P>();

constexpr __mmask32 word_bits(int P, int first, int element) {
    __mmask32 m = 0;
    for (int i = 0; i < 32; ++i)
        if ((first + i) % P == element) m |= __mmask32(1) << i;
    return m;
}

template <int P>
inline constexpr __mmask32 kRedWords[4] = {word_bits(P, 0, 2), word_bits(P, 32, 2), word_bits(P, 64, 2), word_bits(P, 96, 2)};

template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, bool white = false) {
    for (int v = 0; v < P; ++v) {
        const __m512i index = _mm512_load_si512(kInterleave16<P>.index[v]);
        const __m512i bg = _mm512_permutex2var_epi16((__m512i)b, index, (__m512i)g);
        const __m512i px = _mm512_mask_permutexvar_epi16(bg, kRedWords<P>[v], index, (__m512i)r);
        if constexpr (P == 4) {
            _mm512_mask_storeu_epi16(out + 32 * v, white ? 0xFFFFFFFFu : 0x77777777u,
                                     white ? _mm512_mask_mov_epi16(px, 0x88888888u, _mm512_set1_epi32(-1)) : px);
        } else {
            _mm512_storeu_si512(out + 32 * v, px);
        }
    }
}

// Element 3 of four-element pixels from `fourth`.
template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, Words fourth) {
    for (int v = 0; v < P; ++v) {
        const __m512i index = _mm512_load_si512(kInterleave16<P>.index[v]);
        const __m512i bg = _mm512_permutex2var_epi16((__m512i)b, index, (__m512i)g);
        const __m512i px = _mm512_mask_permutexvar_epi16(bg, kRedWords<P>[v], index, (__m512i)r);
        _mm512_storeu_si512(out + 32 * v, P == 4 ? _mm512_mask_mov_epi16(px, 0x88888888u, (__m512i)fourth) : px);
    }
}

// The high 16 bits of the lanes' unsigned 32-bit products.
QZRCFA_INLINE Words mul_high(Words a, Words b) { return (Words)_mm512_mulhi_epu16((__m512i)a, (__m512i)b); }

// The mean of two lanes rounded up, (a + b + 1) >> 1, without overflow.
QZRCFA_INLINE Bytes mean_up(Bytes a, Bytes b) { return (Bytes)_mm512_avg_epu8((__m512i)a, (__m512i)b); }
QZRCFA_INLINE Words mean_up(Words a, Words b) { return (Words)_mm512_avg_epu16((__m512i)a, (__m512i)b); }
// `yes` where a < b (unsigned bytes, signed 16-bit lanes), `no` elsewhere.
QZRCFA_INLINE Bytes blend_less(Bytes a, Bytes b, Bytes yes, Bytes no) {
    return (Bytes)_mm512_mask_blend_epi8(_mm512_cmplt_epu8_mask((__m512i)a, (__m512i)b), (__m512i)no, (__m512i)yes);
}
QZRCFA_INLINE Wide blend_less(Wide a, Wide b, Wide yes, Wide no) {
    return (Wide)_mm512_mask_blend_epi16(_mm512_cmplt_epi16_mask((__m512i)a, (__m512i)b), (__m512i)no, (__m512i)yes);
}
QZRCFA_INLINE GreyVector mean_up(GreyVector a, GreyVector b) { return (GreyVector)_mm256_avg_epu8((__m256i)a, (__m256i)b); }

// a / b for lanes that hold integers 0 .. 255, as IEEE division gives it (see
// pixels_sse2-inl.h). With VBMI, the three-byte colour pass's quotient loop waits on the
// divider, and this sequence made that pass about a tenth faster on an AMD EPYC (Zen 5);
// the BW set's loop is busy with the shuffles of its three-byte gathers, and there the
// sequence was slower than vdivps, so that set divides.
//
// r = vrcp14ps(b) is within 2^-14 of 1 / b relatively, q0 = a r within 2^-13.9 of a / b.
// Each step takes the residual a - q b, exact in one fused multiply-add: q b is a
// multiple of ulp(q) (b is an integer), so is a (q < 2^8, ulp(q) <= 2^-16), and the
// residual, below 2^-13.9 a, spans fewer than 24 bits of ulp(q). The step
// q + (a - q b) r leaves (a/b - q)(1 - b r): 2^-27.9 of a/b after the first step, which
// rounding brings to at most 1.07 * 2^-24, and 2^-37.8 after the second. A quotient of
// two integers below 256 is a float, or lies at least 2^-33 of itself away from every
// rounding boundary (125 / 251 comes closest), so the second step rounds to IEEE
// division's result. Only the documented bound of vrcp14ps enters, not its bits on one
// processor. 0 / b: every term is +0, the steps add +0 to +0. a / 0 and 0 / 0:
// the estimate is +inf and q0 = a * inf is already IEEE's +inf or NaN; the steps would
// turn it into NaN (inf * 0), so lanes with b = +0 keep q0.
QZRCFA_INLINE Floats quotient(Floats a, Floats b) {
#if defined(__AVX512VBMI__)
    const __m512 va = (__m512)a, vb = (__m512)b;
    const __mmask16 nonzero = _mm512_test_epi32_mask((__m512i)vb, (__m512i)vb);
    const __m512 r = _mm512_rcp14_ps(vb);
    const __m512 q0 = _mm512_mul_ps(va, r);
    const __m512 q1 = _mm512_mask3_fmadd_ps(_mm512_fnmadd_ps(q0, vb, va), r, q0, nonzero);
    return (Floats)_mm512_mask3_fmadd_ps(_mm512_fnmadd_ps(q1, vb, va), r, q1, nonzero);
#else
    return a / b;
#endif
}
