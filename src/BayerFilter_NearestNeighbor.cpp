// Nearest neighbour: 8-bit colour, 16-bit colour and grey output.
//
// Every interior colour pixel takes its missing colours from a two-by-two
// neighbourhood: the pixel, its horizontal neighbour on one side, and the two samples
// below them. The 8-bit members do not share one neighbourhood; each names its form:
//   form A: neighbour on the right, green averaged from the block's two greens;
//   form B: neighbour on the right, green copied from the block's upper row;
//   form C: neighbour on the left, green copied from the block's upper row.
// The 16-bit members all use form C: pure copies from the block on the left.
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

#include "detail/bayer.h"
#include "detail/byte_vectors.h"
#include "detail/cpu.h"
#include "detail/frame.h"
#include "detail/grey.h"
#include "detail/nearest_rows.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

constexpr NearestForm kFormA{+1, true};
constexpr NearestForm kFormB{+1, false};
constexpr NearestForm kFormC{-1, false};

// Reference row kernel. At a red or blue site: own colour = C, opposite colour = the
// diagonal sample below, green = the horizontal neighbour (or its mean with the sample
// below). At a green site: the row's colour = the horizontal neighbour, the other
// colour = the sample below, green = C (or its mean with the diagonal below).
// Samples are 8- or 16-bit; so are the output elements.
template <class T>
static int nearest_columns(const Row<T>& row, const NearestForm& form, int c) {
    const int dc = form.dc;
    const int colour = row.phase.colour;
    const int other = row.phase.other();
    for (; c <= row.c_last; ++c) {
        const T* s = row.s + c;
        const T* below = s + row.width;
        T* px = row.d + std::ptrdiff_t(c) * row.stride;
        if (row.phase.green_at(c)) {
            px[colour] = s[dc];
            px[other] = below[0];
            px[kGreen] = form.average_green ? T((s[0] + below[dc]) >> 1) : s[0];
        } else {
            px[colour] = s[0];
            px[other] = below[dc];
            px[kGreen] = form.average_green ? T((s[dc] + below[0]) >> 1) : s[dc];
        }
    }
    return c;
}

int nearest_columns_scalar(const Row<std::uint8_t>& row, const NearestForm& form, int c) {
    return nearest_columns(row, form, c);
}
int nearest_columns_scalar(const Row<std::uint16_t>& row, const NearestForm& form, int c) {
    return nearest_columns(row, form, c);
}

#if defined(__x86_64__) && defined(__SSE2__)

// Wide kernels: the scalar rule on byte vectors, every lane computing both sites'
// values and keeping its own site's, with the pixel stores of detail/byte_vectors.h.
// Every sample they read lies in the block the scalar kernel reads for some column.
namespace {

template <class V>
QZRCFA_INLINE Planes<V> nearest_block(const Row<std::uint8_t>& row, const NearestForm& form, int c, const V& green) {
    const std::uint8_t* s = row.s + c;
    const std::uint8_t* below = s + row.width;
    const V here = load<V>(s), beside = load<V>(s + form.dc);
    const V under = load<V>(below), under_beside = load<V>(below + form.dc);
    const V colour = select(green, beside, here);
    const V other = select(green, under, under_beside);
    const V upper_green = select(green, here, beside);
    const V g = form.average_green ? mean2(upper_green, select(green, under_beside, under)) : upper_green;
    return planes(row, colour, g, other);
}

template <int P>
int columns_sse2(const Row<std::uint8_t>& row, const NearestForm& form, int c) {
    const Bytes16 green = green_lanes<Bytes16>(row, c);
    for (; c + 15 <= row.c_last; c += 16)
        store_pixels_sse2<P>(row.d + std::ptrdiff_t(c) * P, nearest_block(row, form, c, green));
    return c;
}

template <int P>
QZRCFA_AVX2 int columns_avx2(const Row<std::uint8_t>& row, const NearestForm& form, int c) {
    const Bytes32 green = green_lanes<Bytes32>(row, c);
    for (; c + 31 <= row.c_last; c += 32)
        store_pixels_avx2<P>(row.d + std::ptrdiff_t(c) * P, nearest_block(row, form, c, green));
    return c;
}

// 16-bit samples: the same rule on eight 16-bit lanes.
typedef std::uint16_t Words8 __attribute__((vector_size(16)));

alignas(16) constexpr std::uint16_t kEvenWords[8] = {0xFFFF, 0, 0xFFFF, 0, 0xFFFF, 0, 0xFFFF, 0};

QZRCFA_INLINE Words8 load_words(const std::uint16_t* p) {
    Words8 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Eight pixels of P (3 or 4) 16-bit elements from the blue, green and red planes:
// exactly 8 * P elements are stored, element 3 of four-element pixels unchanged.
template <int P>
QZRCFA_INLINE void store_pixels16_sse2(std::uint16_t* out, const Words8& b, const Words8& g, const Words8& r) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bg_lo = _mm_unpacklo_epi16((__m128i)b, (__m128i)g), bg_hi = _mm_unpackhi_epi16((__m128i)b, (__m128i)g);
    const __m128i r_lo = _mm_unpacklo_epi16((__m128i)r, zero), r_hi = _mm_unpackhi_epi16((__m128i)r, zero);
    // Two pixels of four elements (the fourth 0) in each.
    const __m128i px[4] = {_mm_unpacklo_epi32(bg_lo, r_lo), _mm_unpackhi_epi32(bg_lo, r_lo),
                           _mm_unpacklo_epi32(bg_hi, r_hi), _mm_unpackhi_epi32(bg_hi, r_hi)};
    __m128i* at = reinterpret_cast<__m128i*>(out);
    if constexpr (P == 4) {
        const __m128i keep = _mm_set1_epi64x(std::int64_t(0xFFFF000000000000ull));
        for (int i = 0; i < 4; ++i) _mm_storeu_si128(at + i, _mm_or_si128(_mm_and_si128(_mm_loadu_si128(at + i), keep), px[i]));
    } else {
        // Each pair squeezed to its 12 bytes, then four pairs packed into 48 bytes.
        const __m128i first = _mm_set_epi32(0, 0, 0x0000FFFF, -1);
        const __m128i second = _mm_set_epi32(0, -1, int(0xFFFF0000u), 0);
        __m128i w[4];
        for (int i = 0; i < 4; ++i)
            w[i] = _mm_or_si128(_mm_and_si128(px[i], first), _mm_and_si128(_mm_srli_si128(px[i], 2), second));
        _mm_storeu_si128(at, _mm_or_si128(w[0], _mm_slli_si128(w[1], 12)));
        _mm_storeu_si128(at + 1, _mm_or_si128(_mm_srli_si128(w[1], 4), _mm_slli_si128(w[2], 8)));
        _mm_storeu_si128(at + 2, _mm_or_si128(_mm_srli_si128(w[2], 8), _mm_slli_si128(w[3], 4)));
    }
}

template <int P>
int columns16_sse2(const Row<std::uint16_t>& row, const NearestForm& form, int c) {
    Words8 green = load_words(kEvenWords);
    if (!row.phase.green_at(c)) green = ~green;
    for (; c + 7 <= row.c_last; c += 8) {
        const std::uint16_t* s = row.s + c;
        const std::uint16_t* below = s + row.width;
        const Words8 here = load_words(s), beside = load_words(s + form.dc);
        const Words8 under = load_words(below), under_beside = load_words(below + form.dc);
        const Words8 colour = select(green, beside, here);
        const Words8 other = select(green, under, under_beside);
        const Words8 upper_green = select(green, here, beside);
        const Words8 g = form.average_green ? mean2(upper_green, select(green, under_beside, under)) : upper_green;
        std::uint16_t* out = row.d + std::ptrdiff_t(c) * P;
        if (row.phase.colour == kRed) store_pixels16_sse2<P>(out, other, g, colour);
        else store_pixels16_sse2<P>(out, colour, g, other);
    }
    return c;
}

}  // namespace

int nearest_columns_sse2(const Row<std::uint16_t>& row, const NearestForm& form, int c) {
    return for_stride(row.stride, c, [&]<int P>() { return columns16_sse2<P>(row, form, c); });
}

int nearest_columns_sse2(const Row<std::uint8_t>& row, const NearestForm& form, int c) {
    return for_stride(row.stride, c, [&]<int P>() { return columns_sse2<P>(row, form, c); });
}

// Compiled for the baseline, so that it may be called on any processor.
int nearest_columns_avx2(const Row<std::uint8_t>& row, const NearestForm& form, int c) {
    if (!isa_available(Isa::AVX2)) return c;
    return for_stride(row.stride, c, [&]<int P>() { return columns_avx2<P>(row, form, c); });
}

#else

int nearest_columns_sse2(const Row<std::uint8_t>&, const NearestForm&, int c) { return c; }
int nearest_columns_sse2(const Row<std::uint16_t>&, const NearestForm&, int c) { return c; }
int nearest_columns_avx2(const Row<std::uint8_t>&, const NearestForm&, int c) { return c; }

#endif

namespace {

void nearest_row8(const Row<std::uint8_t>& row, const NearestForm& form) {
    int c = row.c_first;
    switch (best_isa()) {
    case Isa::AVX2: c = nearest_columns_avx2(row, form, c); [[fallthrough]];
    case Isa::SSE2: c = nearest_columns_sse2(row, form, c); [[fallthrough]];
    case Isa::Scalar: nearest_columns(row, form, c);
    }
}

void nearest_row16(const Row<std::uint16_t>& row, const NearestForm& form) {
    int c = row.c_first;
    if (best_isa() != Isa::Scalar) c = nearest_columns_sse2(row, form, c);
    nearest_columns(row, form, c);
}

using NearestMember = Member<std::uint8_t, NearestForm>;

constexpr NearestMember nearest8(Pattern p, bool flip, Prefill fill, ColourFn<std::uint8_t> border, NearestForm form) {
    return NearestMember{p, flip, fill, border, 3, form, {{nearest_row8, 1, 0}, {}}};
}

// The member table: which form each member uses, and which pre-fills.
constexpr NearestMember kNearest_RGGB = nearest8(Pattern::RGGB, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_RGGB, kFormA);
constexpr NearestMember kNearest_RGGB_Flip = nearest8(Pattern::RGGB, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, kFormA);
constexpr NearestMember kNearest_BGGR = nearest8(Pattern::BGGR, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR, kFormC);
constexpr NearestMember kNearest_BGGR_Flip = nearest8(Pattern::BGGR, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, kFormA);
constexpr NearestMember kNearest_GRBG = nearest8(Pattern::GRBG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG, kFormA);
constexpr NearestMember kNearest_GRBG_Flip = nearest8(Pattern::GRBG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, kFormA);
constexpr NearestMember kNearest_GBRG = nearest8(Pattern::GBRG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG, kFormB);
constexpr NearestMember kNearest_GBRG_Flip = nearest8(Pattern::GBRG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, kFormB);

// The 16-bit members: every pattern and row order takes the block on the left with
// green from its upper row (form C), and none pre-fills.
using Nearest16Member = Member<std::uint16_t, NearestForm>;

constexpr Nearest16Member nearest16(Pattern p, bool flip, ColourFn<std::uint16_t> border) {
    return Nearest16Member{p, flip, Prefill::None, border, 3, kFormC, {{nearest_row16, 1, 0}, {}}};
}

constexpr Nearest16Member kNearest_RGGB_16 = nearest16(Pattern::RGGB, false, QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits);
constexpr Nearest16Member kNearest_BGGR_16 = nearest16(Pattern::BGGR, false, QZRCFA_NearestNeighbor_Edge1_BGGR_16Bits);
constexpr Nearest16Member kNearest_GRBG_16 = nearest16(Pattern::GRBG, false, QZRCFA_NearestNeighbor_Edge1_GRBG_16Bits);
constexpr Nearest16Member kNearest_GBRG_16 = nearest16(Pattern::GBRG, false, QZRCFA_NearestNeighbor_Edge1_GBRG_16Bits);
constexpr Nearest16Member kNearest_RGGB_Flip_16 = nearest16(Pattern::RGGB, true, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip_16Bits);
constexpr Nearest16Member kNearest_BGGR_Flip_16 = nearest16(Pattern::BGGR, true, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits);
constexpr Nearest16Member kNearest_GRBG_Flip_16 = nearest16(Pattern::GRBG, true, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip_16Bits);
constexpr Nearest16Member kNearest_GBRG_Flip_16 = nearest16(Pattern::GBRG, true, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip_16Bits);

}  // namespace

// Grey row kernels. The scalar one is the reference; the vector ones compute the same
// elements in blocks and finish a row's remainder element by element.
template <class T>
static inline void grey_average_tail(const T* upper, const T* lower, T* out, int c, int count) {
    for (; c < count; ++c) out[c] = T((upper[c] + upper[c + 1] + lower[c] + lower[c + 1]) >> 2);
}

void grey_average_row_scalar(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count) {
    grey_average_tail(upper, lower, out, 0, count);
}
void grey_average_row_scalar(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count) {
    grey_average_tail(upper, lower, out, 0, count);
}

#if defined(__x86_64__) || defined(__i386__)

static inline __m128i load128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

__attribute__((target("sse2")))
void grey_average_row_sse2(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count) {
    const __m128i zero = _mm_setzero_si128();
    int c = 0;
    for (; c + 16 <= count; c += 16) {
        const __m128i a0 = load128(upper + c), a1 = load128(upper + c + 1);
        const __m128i b0 = load128(lower + c), b1 = load128(lower + c + 1);
        __m128i lo = _mm_add_epi16(_mm_add_epi16(_mm_unpacklo_epi8(a0, zero), _mm_unpacklo_epi8(a1, zero)),
                                   _mm_add_epi16(_mm_unpacklo_epi8(b0, zero), _mm_unpacklo_epi8(b1, zero)));
        __m128i hi = _mm_add_epi16(_mm_add_epi16(_mm_unpackhi_epi8(a0, zero), _mm_unpackhi_epi8(a1, zero)),
                                   _mm_add_epi16(_mm_unpackhi_epi8(b0, zero), _mm_unpackhi_epi8(b1, zero)));
        lo = _mm_srli_epi16(lo, 2);
        hi = _mm_srli_epi16(hi, 2);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + c), _mm_packus_epi16(lo, hi));
    }
    grey_average_tail(upper, lower, out, c, count);
}

__attribute__((target("sse2")))
void grey_average_row_sse2(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bias32 = _mm_set1_epi32(0x8000);
    const __m128i bias16 = _mm_set1_epi16(std::int16_t(0x8000));
    int c = 0;
    for (; c + 8 <= count; c += 8) {
        const __m128i a0 = load128(upper + c), a1 = load128(upper + c + 1);
        const __m128i b0 = load128(lower + c), b1 = load128(lower + c + 1);
        __m128i lo = _mm_add_epi32(_mm_add_epi32(_mm_unpacklo_epi16(a0, zero), _mm_unpacklo_epi16(a1, zero)),
                                   _mm_add_epi32(_mm_unpacklo_epi16(b0, zero), _mm_unpacklo_epi16(b1, zero)));
        __m128i hi = _mm_add_epi32(_mm_add_epi32(_mm_unpackhi_epi16(a0, zero), _mm_unpackhi_epi16(a1, zero)),
                                   _mm_add_epi32(_mm_unpackhi_epi16(b0, zero), _mm_unpackhi_epi16(b1, zero)));
        // Means fit 16 unsigned bits; SSE2 packs only with signed saturation, so pack
        // them offset by 0x8000 and take the offset off again.
        lo = _mm_sub_epi32(_mm_srli_epi32(lo, 2), bias32);
        hi = _mm_sub_epi32(_mm_srli_epi32(hi, 2), bias32);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + c), _mm_xor_si128(_mm_packs_epi32(lo, hi), bias16));
    }
    grey_average_tail(upper, lower, out, c, count);
}

__attribute__((target("avx2")))
static inline __m256i grey_sum16_avx2(const std::uint8_t* upper, const std::uint8_t* lower) {
    const __m256i a0 = _mm256_cvtepu8_epi16(load128(upper)), a1 = _mm256_cvtepu8_epi16(load128(upper + 1));
    const __m256i b0 = _mm256_cvtepu8_epi16(load128(lower)), b1 = _mm256_cvtepu8_epi16(load128(lower + 1));
    return _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(a0, a1), _mm256_add_epi16(b0, b1)), 2);
}

__attribute__((target("avx2")))
void grey_average_row_avx2(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count) {
    int c = 0;
    for (; c + 32 <= count; c += 32) {
        const __m256i lo = grey_sum16_avx2(upper + c, lower + c);
        const __m256i hi = grey_sum16_avx2(upper + c + 16, lower + c + 16);
        // packus works per 128-bit lane; put the four quarters back in order.
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + c), packed);
    }
    grey_average_tail(upper, lower, out, c, count);
}

__attribute__((target("avx2")))
static inline __m256i grey_sum32_avx2(const std::uint16_t* upper, const std::uint16_t* lower) {
    const __m256i a0 = _mm256_cvtepu16_epi32(load128(upper)), a1 = _mm256_cvtepu16_epi32(load128(upper + 1));
    const __m256i b0 = _mm256_cvtepu16_epi32(load128(lower)), b1 = _mm256_cvtepu16_epi32(load128(lower + 1));
    return _mm256_srli_epi32(_mm256_add_epi32(_mm256_add_epi32(a0, a1), _mm256_add_epi32(b0, b1)), 2);
}

__attribute__((target("avx2")))
void grey_average_row_avx2(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count) {
    int c = 0;
    for (; c + 16 <= count; c += 16) {
        const __m256i lo = grey_sum32_avx2(upper + c, lower + c);
        const __m256i hi = grey_sum32_avx2(upper + c + 8, lower + c + 8);
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(lo, hi), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + c), packed);
    }
    grey_average_tail(upper, lower, out, c, count);
}

#else  // no vector kernels on this processor family

void grey_average_row_sse2(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count) {
    grey_average_tail(upper, lower, out, 0, count);
}
void grey_average_row_sse2(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count) {
    grey_average_tail(upper, lower, out, 0, count);
}
void grey_average_row_avx2(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count) {
    grey_average_tail(upper, lower, out, 0, count);
}
void grey_average_row_avx2(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count) {
    grey_average_tail(upper, lower, out, 0, count);
}

#endif

namespace {

// Grey output. Every pixel is the truncated mean of the two-by-two block whose
// top-left sample it is; the pattern does not enter the arithmetic. Raw rows 0 to
// height - 2 are averaged into their output rows, and the one row left (the last, or
// for bottom-up members the first) is a copy of its neighbour. The members differ in
// how they finish the right-hand columns of a row, and in row order:
//   two-column copy: columns width - 2 and width - 1 each repeat the element to their
//     left, so both equal column width - 3;
//   last-column shuffle: columns up to width - 2 are averaged; then the two elements
//     after the row receive columns width - 3 and width - 2, and the last column
//     repeats column width - 4. The two elements after the row are the first two of
//     the next row in memory: top-down members overwrite them with the next row;
//     bottom-up members have already finished that row, and their first row filled
//     writes two elements past the end of the image.
// Both read the output as already written, so on narrow frames they reach the
// elements before the row.
enum class GreyRightEdge : std::uint8_t { TwoColumnCopy, LastColumnShuffle };

struct GreyMember {
    bool flip;
    GreyRightEdge right;
};

// The members with their own implementation. The bottom-up BGGR, GRBG and GBRG
// members (8- and 16-bit) are not here: their entry points hand over to the bottom-up
// RGGB member, so the 8-bit ones copy two columns although their top-down siblings
// shuffle.
constexpr GreyMember kGrey_RGGB{false, GreyRightEdge::TwoColumnCopy};
constexpr GreyMember kGrey_RGGB_Flip{true, GreyRightEdge::TwoColumnCopy};
constexpr GreyMember kGrey_BGGR{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GRBG{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GBRG{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_RGGB_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_BGGR_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GRBG_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GBRG_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_RGGB_Flip_16{true, GreyRightEdge::LastColumnShuffle};

template <class T>
void grey_finish_row(GreyRightEdge right, T* out, int width) {
    if (right == GreyRightEdge::TwoColumnCopy) {
        for (int c = width >= 2 ? width - 2 : 0; c < width; ++c) out[c] = out[c - 1];
    } else {
        const int c = width - 1;
        out[c + 1] = out[c - 2];
        out[c + 2] = out[c - 1];
        out[c] = out[c - 3];
    }
}

template <class T>
int grey(const GreyMember& m, const T* src, int width, int height, T* dst) {
    const std::size_t row_bytes = std::size_t(std::ptrdiff_t(width)) * sizeof(T);
    if (height < 1) return 0;
    if (height == 1) {
        // Nothing to average: the row is copied from the row's width of elements just
        // before the image (top-down) or just after it (bottom-up).
        std::memcpy(dst, m.flip ? dst + width : dst - width, row_bytes);
        return 0;
    }
    const int averaged = m.right == GreyRightEdge::TwoColumnCopy ? width - 2 : width - 1;
    const Isa isa = best_isa();
    for (int s = 0; s <= height - 2; ++s) {
        if (width < 1) continue;
        const T* upper = src + std::ptrdiff_t(s) * width;
        T* out = dst + row_offset(output_row(s, height, m.flip), width, 1);
        grey_average_row(upper, upper + width, out, averaged, isa);
        grey_finish_row(m.right, out, width);
    }
    const int last = output_row(height - 1, height, m.flip);
    const int before = output_row(height - 2, height, m.flip);
    std::memcpy(dst + row_offset(last, width, 1), dst + row_offset(before, width, 1), row_bytes);
    return 0;
}

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
using qzrcfa::detail::grey;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_NearestNeighbor_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GBRG_Flip, src, width, height, dst, bitCount);
}

QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_RGGB_16, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_BGGR_16, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GRBG_16, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GBRG_16, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_RGGB_Flip_16, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_BGGR_Flip_16, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GRBG_Flip_16, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GBRG_Flip_16, src, width, height, dst, bitCount);
}


QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray(unsigned char* src, int width, int height, unsigned char* dst) {
    return grey(d::kGrey_RGGB, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray(unsigned char* src, int width, int height, unsigned char* dst) {
    return grey(d::kGrey_BGGR, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray(unsigned char* src, int width, int height, unsigned char* dst) {
    return grey(d::kGrey_GRBG, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray(unsigned char* src, int width, int height, unsigned char* dst) {
    return grey(d::kGrey_GBRG, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst) {
    return grey(d::kGrey_RGGB_Flip, src, width, height, dst);
}
// Through the exported entry point of the bottom-up RGGB member.
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return grey(d::kGrey_RGGB_16, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return grey(d::kGrey_BGGR_16, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return grey(d::kGrey_GRBG_16, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return grey(d::kGrey_GBRG_16, src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return grey(d::kGrey_RGGB_Flip_16, src, width, height, dst);
}
// Through the exported entry point of the bottom-up RGGB member.
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(src, width, height, dst);
}

}  // extern "C"
