// Byte-vector helpers shared by the wide row kernels of the colour methods.
//
// The arithmetic of a wide kernel is written once on GCC byte vectors (16 bytes for
// the x86-64 baseline, 32 for AVX2) and inlined into each instruction set's kernel;
// only the interleaving of the three colour planes into pixels is written per
// instruction set, here. Means are floors, formed in bytes without widening:
// (a & b) + ((a ^ b) >> 1) is floor((a + b) / 2), and the mean of four is the mean of
// the two pair means plus the carry that both pairs' dropped halves make together.
//
// Everything here is always inlined into a kernel of the instruction set it runs in,
// so no 32-byte vector ever crosses a call without AVX: the warning about that calling
// convention does not apply, and it is silenced for the files that include this one.
#pragma once

#if defined(__x86_64__) && defined(__SSE2__)

#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "detail/bayer.h"
#include "detail/frame.h"

#pragma GCC diagnostic ignored "-Wpsabi"

#define QZRCFA_INLINE [[gnu::always_inline]] inline
#define QZRCFA_AVX2 __attribute__((target("avx2")))

namespace qzrcfa::detail {

typedef std::uint8_t Bytes16 __attribute__((vector_size(16)));
typedef std::uint8_t Bytes32 __attribute__((vector_size(32)));

// The wide kernels are written for pixel strides 3 and 4 as a template parameter:
// runs `kernel.template operator()<P>()` for those two and leaves any other stride
// whole to the next kernel by returning `c` unchanged.
template <class Kernel>
QZRCFA_INLINE int for_stride(int stride, int c, Kernel&& kernel) {
    if (stride == 3) return kernel.template operator()<3>();
    if (stride == 4) return kernel.template operator()<4>();
    return c;
}

template <class V>
QZRCFA_INLINE V load(const std::uint8_t* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class V>
QZRCFA_INLINE V mean2(const V& a, const V& b) {
    return (a & b) + ((a ^ b) >> 1);
}

template <class V>
QZRCFA_INLINE V mean4(const V& a, const V& b, const V& c, const V& d) {
    const V ab = mean2(a, b);
    const V cd = mean2(c, d);
    return mean2(ab, cd) + ((ab ^ cd) & (a ^ b) & (c ^ d) & 1);
}

// Lanes of `mask` (all ones or all zeros per byte) take `yes`, the others `no`.
template <class V>
QZRCFA_INLINE V select(const V& mask, const V& yes, const V& no) {
    return (yes & mask) | (no & ~mask);
}

alignas(32) inline constexpr std::uint8_t kEvenLanes[32] = {
    0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0,
    0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0};

// Lanes that hold green sites, for blocks that start on a column of c's parity.
template <class V>
QZRCFA_INLINE V green_lanes(const Row<std::uint8_t>& row, int c) {
    const V even = load<V>(kEvenLanes);
    return row.phase.green_at(c) ? even : ~even;
}

// One block of columns as three colour planes.
template <class V>
struct Planes {
    V blue, green, red;
};

// Planes from the row's own colour, green and the other colour.
template <class V>
QZRCFA_INLINE Planes<V> planes(const Row<std::uint8_t>& row, const V& colour, const V& green, const V& other) {
    if (row.phase.colour == kRed) return {other, green, colour};
    return {colour, green, other};
}

// Sixteen pixels from planes: each group of four as blue, green, red, 0.
QZRCFA_INLINE void to_pixels_sse2(const Planes<Bytes16>& p, __m128i (&px)[4]) {
    const __m128i b = (__m128i)p.blue, g = (__m128i)p.green, r = (__m128i)p.red;
    const __m128i zero = _mm_setzero_si128();
    const __m128i bg_lo = _mm_unpacklo_epi8(b, g), bg_hi = _mm_unpackhi_epi8(b, g);
    const __m128i r_lo = _mm_unpacklo_epi8(r, zero), r_hi = _mm_unpackhi_epi8(r, zero);
    px[0] = _mm_unpacklo_epi16(bg_lo, r_lo);
    px[1] = _mm_unpackhi_epi16(bg_lo, r_lo);
    px[2] = _mm_unpacklo_epi16(bg_hi, r_hi);
    px[3] = _mm_unpackhi_epi16(bg_hi, r_hi);
}

// Four pixels of four bytes (the fourth 0) squeezed into the low 12 bytes.
QZRCFA_INLINE __m128i squeeze_sse2(__m128i x) {
    const __m128i low3 = _mm_set1_epi64x(0x0000000000FFFFFF);
    const __m128i next3 = _mm_set1_epi64x(0x0000FFFFFF000000);
    const __m128i pairs = _mm_or_si128(_mm_and_si128(x, low3), _mm_and_si128(_mm_srli_epi64(x, 8), next3));
    const __m128i upper = _mm_andnot_si128(_mm_set_epi32(0, 0, 0xFFFF, -1), _mm_srli_si128(pairs, 2));
    return _mm_or_si128(_mm_move_epi64(pairs), upper);
}

// Sixteen pixels of four bytes (the fourth 0) as 48 bytes of three-byte pixels.
QZRCFA_INLINE void squeeze3_sse2(const __m128i (&px)[4], __m128i (&w)[3]) {
    const __m128i w0 = squeeze_sse2(px[0]), w1 = squeeze_sse2(px[1]);
    const __m128i w2 = squeeze_sse2(px[2]), w3 = squeeze_sse2(px[3]);
    w[0] = _mm_or_si128(w0, _mm_slli_si128(w1, 12));
    w[1] = _mm_or_si128(_mm_srli_si128(w1, 4), _mm_slli_si128(w2, 8));
    w[2] = _mm_or_si128(_mm_srli_si128(w2, 8), _mm_slli_si128(w3, 4));
}

// Element 3 keeps what the buffer held: it is read and stored back unchanged.
QZRCFA_INLINE void store4_sse2(std::uint8_t* out, __m128i px) {
    const __m128i keep = _mm_set1_epi32(int(0xFF000000u));
    __m128i* at = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(at, _mm_or_si128(_mm_and_si128(_mm_loadu_si128(at), keep), px));
}

// Stores 16 pixels of P (3 or 4) bytes at `out`: exactly 16 * P bytes, element 3 of
// four-byte pixels unchanged.
template <int P>
QZRCFA_INLINE void store_pixels_sse2(std::uint8_t* out, const Planes<Bytes16>& p) {
    __m128i px[4];
    to_pixels_sse2(p, px);
    if constexpr (P == 4) {
        for (int i = 0; i < 4; ++i) store4_sse2(out + 16 * i, px[i]);
    } else {
        __m128i w[3];
        squeeze3_sse2(px, w);
        __m128i* at = reinterpret_cast<__m128i*>(out);
        for (int i = 0; i < 3; ++i) _mm_storeu_si128(at + i, w[i]);
    }
}

// Byte masks of one element in 32 three-byte pixels: [element][byte].
struct ElementMask3 {
    std::uint8_t byte[3][96];
};

constexpr ElementMask3 make_element_mask3() {
    ElementMask3 t{};
    for (int e = 0; e < 3; ++e)
        for (int i = 0; i < 96; ++i) t.byte[e][i] = i % 3 == e ? 0xFF : 0;
    return t;
}

alignas(32) inline constexpr ElementMask3 kElementMask3 = make_element_mask3();

// Stores element 1 (green) of 16 pixels of P (3 or 4) bytes at `out`. The other
// elements of those pixels are read and stored back unchanged; nothing outside the
// 16 * P bytes is touched.
template <int P>
QZRCFA_INLINE void store_green_sse2(std::uint8_t* out, const Bytes16& green) {
    const Bytes16 none{};
    __m128i px[4];
    to_pixels_sse2(Planes<Bytes16>{none, green, none}, px);
    __m128i* at = reinterpret_cast<__m128i*>(out);
    if constexpr (P == 4) {
        const __m128i keep = _mm_set1_epi32(int(0xFFFF00FFu));
        for (int i = 0; i < 4; ++i)
            _mm_storeu_si128(at + i, _mm_or_si128(_mm_and_si128(_mm_loadu_si128(at + i), keep), px[i]));
    } else {
        __m128i w[3];
        squeeze3_sse2(px, w);
        for (int i = 0; i < 3; ++i) {
            const __m128i mask = _mm_load_si128(reinterpret_cast<const __m128i*>(kElementMask3.byte[kGreen] + 16 * i));
            _mm_storeu_si128(at + i, _mm_or_si128(_mm_andnot_si128(mask, _mm_loadu_si128(at + i)), w[i]));
        }
    }
}

// Byte shuffles that put 16 pixels of planar colour into 48 bytes of three-byte
// pixels: [output vector][colour][lane byte], the same in both 128-bit lanes.
struct Interleave3 {
    std::uint8_t index[3][3][32];
};

constexpr Interleave3 make_interleave3() {
    Interleave3 t{};
    for (int v = 0; v < 3; ++v)
        for (int colour = 0; colour < 3; ++colour)
            for (int i = 0; i < 32; ++i) {
                const int byte = 16 * v + i % 16;
                t.index[v][colour][i] = std::uint8_t(byte % 3 == colour ? byte / 3 : 0x80);
            }
    return t;
}

alignas(32) inline constexpr Interleave3 kInterleave3 = make_interleave3();

QZRCFA_AVX2 QZRCFA_INLINE __m256i shuffle_avx2(const Bytes32& plane, const std::uint8_t* index) {
    return _mm256_shuffle_epi8((__m256i)plane, _mm256_load_si256(reinterpret_cast<const __m256i*>(index)));
}

// Output vector v (of three) for 16 pixels per lane.
QZRCFA_AVX2 QZRCFA_INLINE __m256i gather3_avx2(const Planes<Bytes32>& p, int v) {
    const auto& index = kInterleave3.index[v];
    return _mm256_or_si256(_mm256_or_si256(shuffle_avx2(p.blue, index[0]), shuffle_avx2(p.green, index[1])),
                           shuffle_avx2(p.red, index[2]));
}

// Stores 32 pixels of P (3 or 4) bytes at `out`: exactly 32 * P bytes, element 3 of
// four-byte pixels unchanged.
template <int P>
QZRCFA_AVX2 QZRCFA_INLINE void store_pixels_avx2(std::uint8_t* out, const Planes<Bytes32>& p) {
    __m256i* at = reinterpret_cast<__m256i*>(out);
    if constexpr (P == 3) {
        // Each 128-bit lane holds a third of the 48 bytes of its 16 pixels.
        const __m256i o0 = gather3_avx2(p, 0), o1 = gather3_avx2(p, 1), o2 = gather3_avx2(p, 2);
        _mm256_storeu_si256(at, _mm256_permute2x128_si256(o0, o1, 0x20));
        _mm256_storeu_si256(at + 1, _mm256_permute2x128_si256(o2, o0, 0x30));
        _mm256_storeu_si256(at + 2, _mm256_permute2x128_si256(o1, o2, 0x31));
    } else {
        const __m256i zero = _mm256_setzero_si256();
        const __m256i b = (__m256i)p.blue, g = (__m256i)p.green, r = (__m256i)p.red;
        const __m256i bg_lo = _mm256_unpacklo_epi8(b, g), bg_hi = _mm256_unpackhi_epi8(b, g);
        const __m256i r_lo = _mm256_unpacklo_epi8(r, zero), r_hi = _mm256_unpackhi_epi8(r, zero);
        // Pixels 0-3 | 16-19, 4-7 | 20-23, 8-11 | 24-27, 12-15 | 28-31.
        const __m256i q0 = _mm256_unpacklo_epi16(bg_lo, r_lo), q1 = _mm256_unpackhi_epi16(bg_lo, r_lo);
        const __m256i q2 = _mm256_unpacklo_epi16(bg_hi, r_hi), q3 = _mm256_unpackhi_epi16(bg_hi, r_hi);
        const __m256i px[4] = {_mm256_permute2x128_si256(q0, q1, 0x20), _mm256_permute2x128_si256(q2, q3, 0x20),
                               _mm256_permute2x128_si256(q0, q1, 0x31), _mm256_permute2x128_si256(q2, q3, 0x31)};
        const __m256i keep = _mm256_set1_epi32(int(0xFF000000u));
        for (int i = 0; i < 4; ++i)
            _mm256_storeu_si256(at + i, _mm256_or_si256(_mm256_and_si256(_mm256_loadu_si256(at + i), keep), px[i]));
    }
}

// Stores element 1 (green) of 32 pixels of P (3 or 4) bytes at `out`, the other
// elements of those pixels read and stored back unchanged; exactly 32 * P bytes.
template <int P>
QZRCFA_AVX2 QZRCFA_INLINE void store_green_avx2(std::uint8_t* out, const Bytes32& green) {
    __m256i* at = reinterpret_cast<__m256i*>(out);
    __m256i px[P];
    if constexpr (P == 3) {
        const auto& index = kInterleave3.index;
        const __m256i o0 = shuffle_avx2(green, index[0][kGreen]);
        const __m256i o1 = shuffle_avx2(green, index[1][kGreen]);
        const __m256i o2 = shuffle_avx2(green, index[2][kGreen]);
        px[0] = _mm256_permute2x128_si256(o0, o1, 0x20);
        px[1] = _mm256_permute2x128_si256(o2, o0, 0x30);
        px[2] = _mm256_permute2x128_si256(o1, o2, 0x31);
        for (int i = 0; i < 3; ++i) {
            const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(kElementMask3.byte[kGreen] + 32 * i));
            _mm256_storeu_si256(at + i, _mm256_or_si256(_mm256_andnot_si256(mask, _mm256_loadu_si256(at + i)), px[i]));
        }
    } else {
        const __m256i zero = _mm256_setzero_si256();
        const __m256i g = (__m256i)green;
        const __m256i zg_lo = _mm256_unpacklo_epi8(zero, g), zg_hi = _mm256_unpackhi_epi8(zero, g);
        const __m256i q0 = _mm256_unpacklo_epi16(zg_lo, zero), q1 = _mm256_unpackhi_epi16(zg_lo, zero);
        const __m256i q2 = _mm256_unpacklo_epi16(zg_hi, zero), q3 = _mm256_unpackhi_epi16(zg_hi, zero);
        px[0] = _mm256_permute2x128_si256(q0, q1, 0x20);
        px[1] = _mm256_permute2x128_si256(q2, q3, 0x20);
        px[2] = _mm256_permute2x128_si256(q0, q1, 0x31);
        px[3] = _mm256_permute2x128_si256(q2, q3, 0x31);
        const __m256i keep = _mm256_set1_epi32(int(0xFFFF00FFu));
        for (int i = 0; i < 4; ++i)
            _mm256_storeu_si256(at + i, _mm256_or_si256(_mm256_and_si256(_mm256_loadu_si256(at + i), keep), px[i]));
    }
}

}  // namespace qzrcfa::detail

#endif
