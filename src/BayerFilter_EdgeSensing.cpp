// Edge sensing, 8-bit colour.
//
// Green at a red or blue site is the mean of the horizontal or the vertical pair of
// greens, whichever pair differs less (all four on a tie). Method 2 takes the opposite
// colour at a red or blue site along the diagonal whose two samples differ less (all
// four on a tie); method 1 always takes the mean of the four diagonals. Green sites
// are bilinear: the row's colour from left and right, the other colour from above and
// below, except in the top-down GBRG member of method 1, which exchanges the two.
//
// Method 2 exists for RGGB alone, and the RGGB members of method 1 are that method 2
// under another name: they forward to it through its exported entry points.
//
// The row kernel runs as wide as the processor allows: AVX2 takes 32 columns at a
// time, SSE2 16, and the scalar kernel, which is the reference, finishes the row.
#include <cstdint>
#include <cstdlib>

#include "detail/bayer.h"
#include "detail/byte_vectors.h"
#include "detail/cpu.h"
#include "detail/edge_sensing_rows.h"
#include "detail/frame.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

namespace {

constexpr EdgeSensingRule kMethod2{true, false};
constexpr EdgeSensingRule kMethod1{false, false};
constexpr EdgeSensingRule kMethod1Exchanged{false, true};

// Mean of the pair (a, b) or of the pair (c, d), whichever differs less; of all four
// when they differ equally.
inline std::uint8_t quieter_pair(int a, int b, int c, int d) {
    const int d1 = std::abs(a - b);
    const int d2 = std::abs(c - d);
    if (d1 < d2) return std::uint8_t((a + b) >> 1);
    if (d2 < d1) return std::uint8_t((c + d) >> 1);
    return std::uint8_t((a + b + c + d) >> 2);
}

}  // namespace

// Reference row kernel, columns c .. c_last.
int edge_sensing_columns_scalar(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c) {
    const std::ptrdiff_t w = row.width;
    const int colour = row.phase.colour;
    const int other = row.phase.other();
    // Elements that take the left/right and the above/below means at a green site.
    const int across = rule.exchanged_green_sites ? other : colour;
    const int along = 2 - across;
    for (; c <= row.c_last; ++c) {
        const std::uint8_t* s = row.s + c;
        const std::uint8_t* up = s - w;
        const std::uint8_t* dn = s + w;
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        if (row.phase.green_at(c)) {
            px[across] = std::uint8_t((s[-1] + s[1]) >> 1);
            px[kGreen] = s[0];
            px[along] = std::uint8_t((up[0] + dn[0]) >> 1);
        } else {
            px[colour] = s[0];
            px[kGreen] = quieter_pair(s[-1], s[1], up[0], dn[0]);
            px[other] = rule.directional_diagonal ? quieter_pair(up[-1], dn[1], up[1], dn[-1])
                                                  : std::uint8_t((up[-1] + up[1] + dn[-1] + dn[1]) >> 2);
        }
    }
    return c;
}

#if defined(__x86_64__) && defined(__SSE2__)

// Wide kernels: the rule on byte vectors, written once and inlined into each
// instruction set's kernel, with the pixel stores of detail/byte_vectors.h. Every lane
// computes what both kinds of site need and keeps its own site's result.
namespace {

template <class V>
QZRCFA_INLINE V lesser(const V& a, const V& b) {
    return a < b ? a : b;
}

template <class V>
QZRCFA_INLINE V greater(const V& a, const V& b) {
    return a > b ? a : b;
}

// The vector form of quieter_pair(): the strict comparisons in both directions leave
// a tie to the mean of all four.
template <class V>
QZRCFA_INLINE V quieter_pair(const V& a, const V& b, const V& c, const V& d) {
    const V d1 = greater(a, b) - lesser(a, b);
    const V d2 = greater(c, d) - lesser(c, d);
    const V least = lesser(d1, d2);
    const V first = (V)(d1 == least);   // d1 <= d2
    const V second = (V)(d2 == least);  // d2 <= d1
    return select(first & second, mean4(a, b, c, d), select(first, mean2(a, b), mean2(c, d)));
}

// Columns c .. c + sizeof(V) - 1 of a row; `green` marks the lanes of green sites.
template <class V, bool Directional>
QZRCFA_INLINE Planes<V> edge_sensing_block(const Row<std::uint8_t>& row, bool exchanged, int c, const V& green) {
    const std::ptrdiff_t w = row.width;
    const std::uint8_t* s = row.s + c;
    const V left = load<V>(s - 1), mid = load<V>(s), right = load<V>(s + 1);
    const V up = load<V>(s - w), dn = load<V>(s + w);
    const V ul = load<V>(s - w - 1), ur = load<V>(s - w + 1);
    const V dl = load<V>(s + w - 1), dr = load<V>(s + w + 1);
    const V across = mean2(left, right), along = mean2(up, dn);
    const V diagonal = Directional ? quieter_pair(ul, dr, ur, dl) : mean4(ul, ur, dl, dr);
    const V colour = select(green, exchanged ? along : across, mid);
    const V other = select(green, exchanged ? across : along, diagonal);
    const V g = select(green, mid, quieter_pair(left, right, up, dn));
    return planes(row, colour, g, other);
}

// The columns a wide kernel of `lanes` columns may take from c on, as [first, last],
// or first > last when not one block fits. A green site reads no diagonal, so where
// the row begins or ends with one, the samples diagonal to it are not read by the
// scalar kernel; no block may reach them. A green first column is left out of the
// range (the caller computes it alone), a green last column is left to the scalar
// kernel.
struct Span {
    int first, last;
};

inline Span wide_span(const Row<std::uint8_t>& row, int c, int lanes) {
    Span span{c, row.c_last};
    if (c == row.c_first && row.phase.green_at(c)) ++span.first;
    if (row.phase.green_at(row.c_last)) --span.last;
    span.last = span.first + (span.last - span.first + 1) / lanes * lanes - 1;
    return span;
}

// Column c alone, by the scalar kernel.
inline void one_column(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c) {
    Row<std::uint8_t> one = row;
    one.c_last = c;
    edge_sensing_columns_scalar(one, rule, c);
}

template <int P, bool Directional>
int columns_sse2(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c) {
    const Span span = wide_span(row, c, 16);
    if (span.first > span.last) return c;
    if (span.first != c) one_column(row, rule, c);
    const Bytes16 green = green_lanes<Bytes16>(row, span.first);
    for (c = span.first; c <= span.last; c += 16)
        store_pixels_sse2<P>(row.d + std::ptrdiff_t(c) * P,
                             edge_sensing_block<Bytes16, Directional>(row, rule.exchanged_green_sites, c, green));
    return c;
}

template <int P, bool Directional>
QZRCFA_AVX2 int columns_avx2(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c) {
    const Span span = wide_span(row, c, 32);
    if (span.first > span.last) return c;
    if (span.first != c) one_column(row, rule, c);
    const Bytes32 green = green_lanes<Bytes32>(row, span.first);
    for (c = span.first; c <= span.last; c += 32)
        store_pixels_avx2<P>(row.d + std::ptrdiff_t(c) * P,
                             edge_sensing_block<Bytes32, Directional>(row, rule.exchanged_green_sites, c, green));
    return c;
}

}  // namespace

int edge_sensing_columns_sse2(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c) {
    return for_stride(row.stride, c, [&]<int P>() {
        return rule.directional_diagonal ? columns_sse2<P, true>(row, rule, c) : columns_sse2<P, false>(row, rule, c);
    });
}

// Compiled for the baseline, so that it may be called on any processor.
int edge_sensing_columns_avx2(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c) {
    if (!isa_available(Isa::AVX2)) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        return rule.directional_diagonal ? columns_avx2<P, true>(row, rule, c) : columns_avx2<P, false>(row, rule, c);
    });
}

#else

int edge_sensing_columns_sse2(const Row<std::uint8_t>&, const EdgeSensingRule&, int c) { return c; }
int edge_sensing_columns_avx2(const Row<std::uint8_t>&, const EdgeSensingRule&, int c) { return c; }

#endif

namespace {

// As wide as the processor allows; the scalar kernel finishes the row.
void edge_sensing_row(const Row<std::uint8_t>& row, const EdgeSensingRule& rule) {
    int c = row.c_first;
    switch (best_isa()) {
    case Isa::AVX2: c = edge_sensing_columns_avx2(row, rule, c); [[fallthrough]];
    case Isa::SSE2: c = edge_sensing_columns_sse2(row, rule, c); [[fallthrough]];
    case Isa::Scalar: edge_sensing_columns_scalar(row, rule, c);
    }
}

using EdgeSensingMember = Member<std::uint8_t, EdgeSensingRule>;

constexpr EdgeSensingMember edge_sensing(Pattern p, bool flip, ColourFn<std::uint8_t> border, EdgeSensingRule rule) {
    return EdgeSensingMember{p, flip, Prefill::None, border, 3, rule, {{edge_sensing_row, 1, 0}, {}}};
}

// The member table. No member pre-fills; the GBRG exchange belongs to the top-down
// member alone.
constexpr EdgeSensingMember kEdgeSensing2_RGGB = edge_sensing(Pattern::RGGB, false, QZRCFA_NearestNeighbor_Edge1_RGGB, kMethod2);
constexpr EdgeSensingMember kEdgeSensing2_RGGB_Flip = edge_sensing(Pattern::RGGB, true, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, kMethod2);
constexpr EdgeSensingMember kEdgeSensing1_BGGR = edge_sensing(Pattern::BGGR, false, QZRCFA_NearestNeighbor_Edge1_BGGR, kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GRBG = edge_sensing(Pattern::GRBG, false, QZRCFA_NearestNeighbor_Edge1_GRBG, kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GBRG = edge_sensing(Pattern::GBRG, false, QZRCFA_NearestNeighbor_Edge1_GBRG, kMethod1Exchanged);
constexpr EdgeSensingMember kEdgeSensing1_BGGR_Flip = edge_sensing(Pattern::BGGR, true, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GRBG_Flip = edge_sensing(Pattern::GRBG, true, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GBRG_Flip = edge_sensing(Pattern::GBRG, true, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, kMethod1);

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_EdgeSensing2_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing2_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing2_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing2_RGGB_Flip, src, width, height, dst, bitCount);
}

// Method 1 on RGGB is method 2.
QZRCFA_API int QZRCFA_EdgeSensing1_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return QZRCFA_EdgeSensing2_RGGB(src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing1_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return QZRCFA_EdgeSensing2_RGGB_Flip(src, width, height, dst, bitCount);
}

QZRCFA_API int QZRCFA_EdgeSensing1_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing1_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing1_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing1_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing1_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing1_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing1_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing1_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing1_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing1_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing1_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kEdgeSensing1_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"
