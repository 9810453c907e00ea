// Bilinear, 8-bit colour.
//
// Every interior pixel keeps its own sample and takes each missing colour as the mean
// of the two or four nearest samples of that colour. All eight members share one
// kernel; they differ in pattern, row order and pre-fill: only the four top-down
// members fill the output with 255 before the border fill runs.
#include <cstdint>

#include "catalogue/members.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

// Reference row kernel, columns c .. c_last. At a red or blue site: own colour = C,
// green = mean of the four side neighbours, opposite colour = mean of the four
// diagonals. At a green site: the row's colour = mean of left and right, the other
// colour = mean of above and below.
int bilinear_columns(const Row<std::uint8_t>& row, const BilinearParams&, int c) {
    const std::ptrdiff_t w = row.pitch;
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
        if (row.fill255 && row.stride == 4) px[3] = 255;
    }
    return c;
}

}  // namespace qzrcfa::detail

namespace qzrcfa::members {
namespace {

using detail::Pattern;
using detail::Prefill;

constexpr Bilinear bilinear(Pattern p, bool flip, Prefill fill, detail::ColourFn<std::uint8_t> border,
                            catalogue::Id border_id) {
    return Bilinear{p, flip, fill, border, border_id, 3, {}, {{detail::bilinear_columns, &detail::KernelSet::bilinear, 1, 0}, {}}};
}

}  // namespace

// The member table: the top-down members pre-fill, the bottom-up ones do not.
constexpr Bilinear Bilinear_RGGB = bilinear(Pattern::RGGB, false, Prefill::Bytes255, QZRCFA_BORDER(Edge1_RGGB));
constexpr Bilinear Bilinear_BGGR = bilinear(Pattern::BGGR, false, Prefill::Bytes255, QZRCFA_BORDER(Edge1_BGGR));
constexpr Bilinear Bilinear_GRBG = bilinear(Pattern::GRBG, false, Prefill::Bytes255, QZRCFA_BORDER(Edge1_GRBG));
constexpr Bilinear Bilinear_GBRG = bilinear(Pattern::GBRG, false, Prefill::Bytes255, QZRCFA_BORDER(Edge1_GBRG));
constexpr Bilinear Bilinear_RGGB_Flip = bilinear(Pattern::RGGB, true, Prefill::None, QZRCFA_BORDER(Edge1_RGGB_Flip));
constexpr Bilinear Bilinear_BGGR_Flip = bilinear(Pattern::BGGR, true, Prefill::None, QZRCFA_BORDER(Edge1_BGGR_Flip));
constexpr Bilinear Bilinear_GRBG_Flip = bilinear(Pattern::GRBG, true, Prefill::None, QZRCFA_BORDER(Edge1_GRBG_Flip));
constexpr Bilinear Bilinear_GBRG_Flip = bilinear(Pattern::GBRG, true, Prefill::None, QZRCFA_BORDER(Edge1_GBRG_Flip));

}  // namespace qzrcfa::members
