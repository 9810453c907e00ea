// Bilinear, 8-bit colour.
//
// Every interior pixel keeps its own sample and takes each missing colour as the mean
// of the two or four nearest samples of that colour. All eight members share one
// kernel; they differ in pattern, row order and pre-fill: only the four top-down
// members fill the output with 255 before the border fill runs.
//
// The row kernel runs as wide as the processor allows: AVX2 takes 32 columns at a
// time, SSE2 16, and the scalar kernel, which is the reference, finishes the row.
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

#include "detail/bayer.h"
#include "detail/bilinear_rows.h"
#include "detail/cpu.h"
#include "detail/frame.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

// Reference row kernel, columns c .. c_last. At a red or blue site: own colour = C,
// green = mean of the four side neighbours, opposite colour = mean of the four
// diagonals. At a green site: the row's colour = mean of left and right, the other
// colour = mean of above and below.
int bilinear_columns_scalar(const Row<std::uint8_t>& row, int c) {
    const std::ptrdiff_t w = row.width;
    const int colour = row.phase.colour;
    const int other = row.phase.other();
    for (; c <= row.c_last; ++c) {
        const std::uint8_t* s = row.s + c;
        const std::uint8_t* up = s - w;
        const std::uint8_t* dn = s + w;
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        if (row.phase.green_at(c)) {
            px[colour] = std::uint8_t((s[1] + s[-1]) >> 1);
            px[kGreen] = s[0];
            px[other] = std::uint8_t((up[0] + dn[0]) >> 1);
        } else {
            px[colour] = s[0];
            px[kGreen] = std::uint8_t((s[1] + s[-1] + up[0] + dn[0]) >> 2);
            px[other] = std::uint8_t((up[1] + up[-1] + dn[1] + dn[-1]) >> 2);
        }
    }
    return c;
}

#if defined(__x86_64__) && defined(__SSE2__)

// Wide kernels. The arithmetic is written once on GCC byte vectors and inlined into
// each instruction set's kernel; only the interleaving of the three colour planes
// into pixels is written per instruction set. Means are floors, formed in bytes
// without widening: (a & b) + ((a ^ b) >> 1) is floor((a + b) / 2), and the mean of
// four is the mean of the two pair means plus the carry that both pairs' dropped
// halves make together.
//
// The byte-vector helpers are always inlined into a kernel of the instruction set
// they run in, so no 32-byte vector ever crosses a call without AVX: the warning
// about that calling convention does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace {

typedef std::uint8_t Bytes16 __attribute__((vector_size(16)));
typedef std::uint8_t Bytes32 __attribute__((vector_size(32)));

#define QZRCFA_INLINE [[gnu::always_inline]] inline
#define QZRCFA_AVX2 __attribute__((target("avx2")))

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

template <class V>
QZRCFA_INLINE V select(const V& mask, const V& yes, const V& no) {
    return (yes & mask) | (no & ~mask);
}

alignas(32) constexpr std::uint8_t kEvenLanes[32] = {
    0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0,
    0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0};

// Lanes that hold green sites, for blocks that start on a column of c's parity.
template <class V>
QZRCFA_INLINE V green_lanes(const Row<std::uint8_t>& row, int c) {
    const V even = load<V>(kEvenLanes);
    return row.phase.green_at(c) ? even : ~even;
}

template <class V>
struct Planes {
    V blue, green, red;
};

// Columns c .. c + sizeof(V) - 1 of a row, by the same rule as the scalar kernel:
// every lane computes both sites' means and keeps its own site's.
template <class V>
QZRCFA_INLINE Planes<V> bilinear_block(const Row<std::uint8_t>& row, int c, const V& green) {
    const std::ptrdiff_t w = row.width;
    const std::uint8_t* s = row.s + c;
    const V left = load<V>(s - 1), mid = load<V>(s), right = load<V>(s + 1);
    const V up = load<V>(s - w), dn = load<V>(s + w);
    const V diagonal = mean4(load<V>(s - w - 1), load<V>(s - w + 1), load<V>(s + w - 1), load<V>(s + w + 1));
    const V colour = select(green, mean2(left, right), mid);
    const V other = select(green, mean2(up, dn), diagonal);
    const V g = select(green, mid, mean4(left, right, up, dn));
    if (row.phase.colour == kRed) return {other, g, colour};
    return {colour, g, other};
}

// Sixteen pixels from planes: each group of four as blue, green, red, 0.
inline void to_pixels_sse2(const Planes<Bytes16>& p, __m128i (&px)[4]) {
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
inline __m128i squeeze_sse2(__m128i x) {
    const __m128i low3 = _mm_set1_epi64x(0x0000000000FFFFFF);
    const __m128i next3 = _mm_set1_epi64x(0x0000FFFFFF000000);
    const __m128i pairs = _mm_or_si128(_mm_and_si128(x, low3), _mm_and_si128(_mm_srli_epi64(x, 8), next3));
    const __m128i upper = _mm_andnot_si128(_mm_set_epi32(0, 0, 0xFFFF, -1), _mm_srli_si128(pairs, 2));
    return _mm_or_si128(_mm_move_epi64(pairs), upper);
}

// Element 3 keeps what the buffer held: it is read and stored back unchanged.
inline void store4(std::uint8_t* out, __m128i px) {
    const __m128i keep = _mm_set1_epi32(int(0xFF000000u));
    __m128i* at = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(at, _mm_or_si128(_mm_and_si128(_mm_loadu_si128(at), keep), px));
}

template <int P>
int columns_sse2(const Row<std::uint8_t>& row, int c) {
    const Bytes16 green = green_lanes<Bytes16>(row, c);
    for (; c + 15 <= row.c_last; c += 16) {
        __m128i px[4];
        to_pixels_sse2(bilinear_block(row, c, green), px);
        std::uint8_t* out = row.d + std::ptrdiff_t(c) * P;
        if constexpr (P == 4) {
            for (int i = 0; i < 4; ++i) store4(out + 16 * i, px[i]);
        } else {
            const __m128i w0 = squeeze_sse2(px[0]), w1 = squeeze_sse2(px[1]);
            const __m128i w2 = squeeze_sse2(px[2]), w3 = squeeze_sse2(px[3]);
            __m128i* at = reinterpret_cast<__m128i*>(out);
            _mm_storeu_si128(at, _mm_or_si128(w0, _mm_slli_si128(w1, 12)));
            _mm_storeu_si128(at + 1, _mm_or_si128(_mm_srli_si128(w1, 4), _mm_slli_si128(w2, 8)));
            _mm_storeu_si128(at + 2, _mm_or_si128(_mm_srli_si128(w2, 8), _mm_slli_si128(w3, 4)));
        }
    }
    return c;
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

alignas(32) constexpr Interleave3 kInterleave3 = make_interleave3();

QZRCFA_AVX2 inline __m256i shuffle_avx2(const Bytes32& plane, const std::uint8_t* index) {
    return _mm256_shuffle_epi8((__m256i)plane, _mm256_load_si256(reinterpret_cast<const __m256i*>(index)));
}

// Output vector v (of three) for 16 pixels per lane.
QZRCFA_AVX2 inline __m256i gather3_avx2(const Planes<Bytes32>& p, int v) {
    const auto& index = kInterleave3.index[v];
    return _mm256_or_si256(_mm256_or_si256(shuffle_avx2(p.blue, index[0]), shuffle_avx2(p.green, index[1])),
                           shuffle_avx2(p.red, index[2]));
}

template <int P>
QZRCFA_AVX2 int columns_avx2(const Row<std::uint8_t>& row, int c) {
    const Bytes32 green = green_lanes<Bytes32>(row, c);
    for (; c + 31 <= row.c_last; c += 32) {
        const Planes<Bytes32> p = bilinear_block(row, c, green);
        __m256i* at = reinterpret_cast<__m256i*>(row.d + std::ptrdiff_t(c) * P);
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
    return c;
}

}  // namespace

int bilinear_columns_sse2(const Row<std::uint8_t>& row, int c) {
    if (row.stride == 3) return columns_sse2<3>(row, c);
    if (row.stride == 4) return columns_sse2<4>(row, c);
    return c;
}

// Compiled for the baseline, so that it may be called on any processor.
int bilinear_columns_avx2(const Row<std::uint8_t>& row, int c) {
    if (!isa_available(Isa::AVX2)) return c;
    if (row.stride == 3) return columns_avx2<3>(row, c);
    if (row.stride == 4) return columns_avx2<4>(row, c);
    return c;
}

#else

int bilinear_columns_sse2(const Row<std::uint8_t>&, int c) { return c; }
int bilinear_columns_avx2(const Row<std::uint8_t>&, int c) { return c; }

#endif

namespace {

struct BilinearParams {};  // one kernel for every member: nothing to choose

void bilinear_row(const Row<std::uint8_t>& row, const BilinearParams&) {
    int c = row.c_first;
    switch (best_isa()) {
    case Isa::AVX2: c = bilinear_columns_avx2(row, c); [[fallthrough]];
    case Isa::SSE2: c = bilinear_columns_sse2(row, c); [[fallthrough]];
    case Isa::Scalar: bilinear_columns_scalar(row, c);
    }
}

using BilinearMember = Member<std::uint8_t, BilinearParams>;

constexpr BilinearMember bilinear(Pattern p, bool flip, Prefill fill, ColourFn<std::uint8_t> border) {
    return BilinearMember{p, flip, fill, border, 3, {}, {{bilinear_row, 1, 0}, {}}};
}

// The member table: the top-down members pre-fill, the bottom-up ones do not.
constexpr BilinearMember kBilinear_RGGB = bilinear(Pattern::RGGB, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_RGGB);
constexpr BilinearMember kBilinear_BGGR = bilinear(Pattern::BGGR, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_BGGR);
constexpr BilinearMember kBilinear_GRBG = bilinear(Pattern::GRBG, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_GRBG);
constexpr BilinearMember kBilinear_GBRG = bilinear(Pattern::GBRG, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_GBRG);
constexpr BilinearMember kBilinear_RGGB_Flip = bilinear(Pattern::RGGB, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip);
constexpr BilinearMember kBilinear_BGGR_Flip = bilinear(Pattern::BGGR, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip);
constexpr BilinearMember kBilinear_GRBG_Flip = bilinear(Pattern::GRBG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip);
constexpr BilinearMember kBilinear_GBRG_Flip = bilinear(Pattern::GBRG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip);

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_Bilinear_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"
