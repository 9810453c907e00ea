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

#include "catalogue/members.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

namespace {

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
    const std::ptrdiff_t w = row.pitch;
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

}  // namespace qzrcfa::detail

namespace qzrcfa::members {
namespace {

using detail::Pattern;

constexpr detail::EdgeSensingRule kMethod2{true, false};
constexpr detail::EdgeSensingRule kMethod1{false, false};
constexpr detail::EdgeSensingRule kMethod1Exchanged{false, true};

constexpr EdgeSensing edge_sensing(Pattern p, bool flip, detail::ColourFn<std::uint8_t> border, catalogue::Id border_id,
                                   detail::EdgeSensingRule rule) {
    return EdgeSensing{p, flip, detail::Prefill::None, border, border_id, 3, rule,
                       {{detail::edge_sensing_columns, &detail::KernelSet::edge_sensing, 1, 0}, {}}};
}

}  // namespace

// The member table. No member pre-fills; the GBRG exchange belongs to the top-down
// member alone. The RGGB members of method 1 forward to method 2 (the catalogue says so).
constexpr EdgeSensing EdgeSensing2_RGGB = edge_sensing(Pattern::RGGB, false, QZRCFA_BORDER(Edge1_RGGB), kMethod2);
constexpr EdgeSensing EdgeSensing2_RGGB_Flip = edge_sensing(Pattern::RGGB, true, QZRCFA_BORDER(Edge1_RGGB_Flip), kMethod2);
constexpr EdgeSensing EdgeSensing1_BGGR = edge_sensing(Pattern::BGGR, false, QZRCFA_BORDER(Edge1_BGGR), kMethod1);
constexpr EdgeSensing EdgeSensing1_GRBG = edge_sensing(Pattern::GRBG, false, QZRCFA_BORDER(Edge1_GRBG), kMethod1);
constexpr EdgeSensing EdgeSensing1_GBRG = edge_sensing(Pattern::GBRG, false, QZRCFA_BORDER(Edge1_GBRG), kMethod1Exchanged);
constexpr EdgeSensing EdgeSensing1_BGGR_Flip = edge_sensing(Pattern::BGGR, true, QZRCFA_BORDER(Edge1_BGGR_Flip), kMethod1);
constexpr EdgeSensing EdgeSensing1_GRBG_Flip = edge_sensing(Pattern::GRBG, true, QZRCFA_BORDER(Edge1_GRBG_Flip), kMethod1);
constexpr EdgeSensing EdgeSensing1_GBRG_Flip = edge_sensing(Pattern::GBRG, true, QZRCFA_BORDER(Edge1_GBRG_Flip), kMethod1);

}  // namespace qzrcfa::members
