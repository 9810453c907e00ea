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
#include <cstdint>
#include <cstdlib>

#include "detail/bayer.h"
#include "detail/border.h"
#include "detail/exports.h"
#include "detail/frame.h"
#include "detail/kernels.h"
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
int edge_sensing_columns(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c) {
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

namespace {

using EdgeSensingMember = ColourMember<std::uint8_t, EdgeSensingRule>;

constexpr EdgeSensingMember edge_sensing(Pattern p, bool flip, ColourFn<std::uint8_t> border, Border border_id,
                                         EdgeSensingRule rule) {
    return EdgeSensingMember{p, flip, Prefill::None, border, border_id, 3, rule,
                             {{edge_sensing_columns, &KernelSet::edge_sensing, 1, 0}, {}}};
}

// The member table. No member pre-fills; the GBRG exchange belongs to the top-down
// member alone.
constexpr EdgeSensingMember kEdgeSensing2_RGGB = edge_sensing(Pattern::RGGB, false, QZRCFA_BORDER(Edge1_RGGB), kMethod2);
constexpr EdgeSensingMember kEdgeSensing2_RGGB_Flip = edge_sensing(Pattern::RGGB, true, QZRCFA_BORDER(Edge1_RGGB_Flip), kMethod2);
constexpr EdgeSensingMember kEdgeSensing1_BGGR = edge_sensing(Pattern::BGGR, false, QZRCFA_BORDER(Edge1_BGGR), kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GRBG = edge_sensing(Pattern::GRBG, false, QZRCFA_BORDER(Edge1_GRBG), kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GBRG = edge_sensing(Pattern::GBRG, false, QZRCFA_BORDER(Edge1_GBRG), kMethod1Exchanged);
constexpr EdgeSensingMember kEdgeSensing1_BGGR_Flip = edge_sensing(Pattern::BGGR, true, QZRCFA_BORDER(Edge1_BGGR_Flip), kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GRBG_Flip = edge_sensing(Pattern::GRBG, true, QZRCFA_BORDER(Edge1_GRBG_Flip), kMethod1);
constexpr EdgeSensingMember kEdgeSensing1_GBRG_Flip = edge_sensing(Pattern::GBRG, true, QZRCFA_BORDER(Edge1_GBRG_Flip), kMethod1);

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_DEFINE_MEMBER(EdgeSensing2_RGGB, unsigned char, d::kEdgeSensing2_RGGB)
QZRCFA_DEFINE_MEMBER(EdgeSensing2_RGGB_Flip, unsigned char, d::kEdgeSensing2_RGGB_Flip)

#if !defined(QZRCFA_EXTENDED)
// Method 1 on RGGB is method 2.
QZRCFA_API int QZRCFA_EdgeSensing1_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return QZRCFA_EdgeSensing2_RGGB(src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_EdgeSensing1_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return QZRCFA_EdgeSensing2_RGGB_Flip(src, width, height, dst, bitCount);
}
#endif

QZRCFA_DEFINE_MEMBER(EdgeSensing1_BGGR, unsigned char, d::kEdgeSensing1_BGGR)
QZRCFA_DEFINE_MEMBER(EdgeSensing1_GRBG, unsigned char, d::kEdgeSensing1_GRBG)
QZRCFA_DEFINE_MEMBER(EdgeSensing1_GBRG, unsigned char, d::kEdgeSensing1_GBRG)
QZRCFA_DEFINE_MEMBER(EdgeSensing1_BGGR_Flip, unsigned char, d::kEdgeSensing1_BGGR_Flip)
QZRCFA_DEFINE_MEMBER(EdgeSensing1_GRBG_Flip, unsigned char, d::kEdgeSensing1_GRBG_Flip)
QZRCFA_DEFINE_MEMBER(EdgeSensing1_GBRG_Flip, unsigned char, d::kEdgeSensing1_GBRG_Flip)

}  // extern "C"
