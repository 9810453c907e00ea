// Nearest neighbour: 8-bit colour, 16-bit colour and grey output (whose frame driver is
// driver/grey.h).
//
// Every interior colour pixel takes its missing colours from a two-by-two
// neighbourhood: the pixel, its horizontal neighbour on one side, and the two samples
// below them. The 8-bit members do not share one neighbourhood; each names its own:
//   right, averaged: neighbour on the right, green the mean of the block's two greens;
//   right, copied: neighbour on the right, green copied from the block's upper row;
//   left, copied: neighbour on the left, green copied from the block's upper row.
// The 16-bit members all take the block on the left with green copied: pure copies.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "catalogue/members.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

constexpr NearestForm kRightAveraged{+1, true};
constexpr NearestForm kRightCopied{+1, false};
constexpr NearestForm kLeftCopied{-1, false};

// Reference row kernel. At a red or blue site: own colour = C, opposite colour = the
// diagonal sample below, green = the horizontal neighbour (or its mean with the sample
// below). At a green site: the row's colour = the horizontal neighbour, the other
// colour = the sample below, green = C (or its mean with the diagonal below).
// Samples are 8- or 16-bit; so are the output elements.
template <class T>
static int nearest(const Row<T>& row, const NearestForm& form, int c) {
    const int dc = form.dc;
    const int colour = row.phase.colour;
    const int other = row.phase.other();
    for (; c <= row.c_last; ++c) {
        const T* s = row.s + c;
        const T* below = s + row.pitch;
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
        if (row.fill255 && row.stride == 4) px[3] = T(255);
    }
    return c;
}

int nearest_columns(const Row<std::uint8_t>& row, const NearestForm& form, int c) { return nearest(row, form, c); }
int nearest_columns(const Row<std::uint16_t>& row, const NearestForm& form, int c) { return nearest(row, form, c); }

// Grey reference: out[c] = (upper[c] + upper[c + 1] + lower[c] + lower[c + 1]) >> 2,
// summed without overflow.
template <class T>
static int grey_reference(const Row<T>& row, int c) {
    const T* upper = row.s;
    const T* lower = row.s + row.pitch;
    for (; c <= row.c_last; ++c) row.d[c] = T((upper[c] + upper[c + 1] + lower[c] + lower[c + 1]) >> 2);
    return c;
}

int grey_columns(const Row<std::uint8_t>& row, const GreyParams&, int c) { return grey_reference(row, c); }
int grey_columns(const Row<std::uint16_t>& row, const GreyParams&, int c) { return grey_reference(row, c); }

}  // namespace qzrcfa::detail

namespace qzrcfa::members {
namespace {

using detail::kLeftCopied;
using detail::kRightAveraged;
using detail::kRightCopied;
using detail::NearestForm;
using detail::Pattern;
using detail::Prefill;

constexpr Nearest nearest8(Pattern p, bool flip, Prefill fill, detail::ColourFn<std::uint8_t> border,
                           catalogue::Id border_id, NearestForm form) {
    return Nearest{p, flip, fill, border, border_id, 3, form, {{detail::nearest_columns, &detail::KernelSet::nearest, 1, 0}, {}}};
}

// The 16-bit members: every pattern and row order takes the block on the left with
// green from its upper row, and none pre-fills.
constexpr Nearest16 nearest16(Pattern p, bool flip, detail::ColourFn<std::uint16_t> border, catalogue::Id border_id) {
    return Nearest16{p, flip, Prefill::None, border, border_id, 3, kLeftCopied,
                     {{detail::nearest_columns, &detail::KernelSet::nearest16, 1, 0}, {}}};
}

using detail::GreyRightEdge;

}  // namespace

// The member tables: which neighbourhood each member uses, and which pre-fills.
constexpr Nearest NearestNeighbor_RGGB = nearest8(Pattern::RGGB, false, Prefill::Bytes255, QZRCFA_BORDER(Edge1_RGGB), kRightAveraged);
constexpr Nearest NearestNeighbor_RGGB_Flip = nearest8(Pattern::RGGB, true, Prefill::None, QZRCFA_BORDER(Edge1_RGGB_Flip), kRightAveraged);
constexpr Nearest NearestNeighbor_BGGR = nearest8(Pattern::BGGR, false, Prefill::None, QZRCFA_BORDER(Edge1_BGGR), kLeftCopied);
constexpr Nearest NearestNeighbor_BGGR_Flip = nearest8(Pattern::BGGR, true, Prefill::None, QZRCFA_BORDER(Edge1_BGGR_Flip), kRightAveraged);
constexpr Nearest NearestNeighbor_GRBG = nearest8(Pattern::GRBG, false, Prefill::None, QZRCFA_BORDER(Edge1_GRBG), kRightAveraged);
constexpr Nearest NearestNeighbor_GRBG_Flip = nearest8(Pattern::GRBG, true, Prefill::None, QZRCFA_BORDER(Edge1_GRBG_Flip), kRightAveraged);
constexpr Nearest NearestNeighbor_GBRG = nearest8(Pattern::GBRG, false, Prefill::None, QZRCFA_BORDER(Edge1_GBRG), kRightCopied);
constexpr Nearest NearestNeighbor_GBRG_Flip = nearest8(Pattern::GBRG, true, Prefill::None, QZRCFA_BORDER(Edge1_GBRG_Flip), kRightCopied);

constexpr Nearest16 NearestNeighbor_RGGB_16Bits = nearest16(Pattern::RGGB, false, QZRCFA_BORDER(Edge1_RGGB_16Bits));
constexpr Nearest16 NearestNeighbor_BGGR_16Bits = nearest16(Pattern::BGGR, false, QZRCFA_BORDER(Edge1_BGGR_16Bits));
constexpr Nearest16 NearestNeighbor_GRBG_16Bits = nearest16(Pattern::GRBG, false, QZRCFA_BORDER(Edge1_GRBG_16Bits));
constexpr Nearest16 NearestNeighbor_GBRG_16Bits = nearest16(Pattern::GBRG, false, QZRCFA_BORDER(Edge1_GBRG_16Bits));
constexpr Nearest16 NearestNeighbor_RGGB_Flip_16Bits = nearest16(Pattern::RGGB, true, QZRCFA_BORDER(Edge1_RGGB_Flip_16Bits));
constexpr Nearest16 NearestNeighbor_BGGR_Flip_16Bits = nearest16(Pattern::BGGR, true, QZRCFA_BORDER(Edge1_BGGR_Flip_16Bits));
constexpr Nearest16 NearestNeighbor_GRBG_Flip_16Bits = nearest16(Pattern::GRBG, true, QZRCFA_BORDER(Edge1_GRBG_Flip_16Bits));
constexpr Nearest16 NearestNeighbor_GBRG_Flip_16Bits = nearest16(Pattern::GBRG, true, QZRCFA_BORDER(Edge1_GBRG_Flip_16Bits));

// Grey members: how they finish a row's right-hand columns, and their row order
// (driver/grey.h). The bottom-up BGGR, GRBG and GBRG members (8- and 16-bit) forward
// to the bottom-up RGGB member (the catalogue says so), so the 8-bit ones copy two
// columns although their top-down siblings shuffle.
constexpr Grey NearestNeighbor_RGGB_Gray{false, GreyRightEdge::TwoColumnCopy};
constexpr Grey NearestNeighbor_RGGB_Gray_Flip{true, GreyRightEdge::TwoColumnCopy};
constexpr Grey NearestNeighbor_BGGR_Gray{false, GreyRightEdge::LastColumnShuffle};
constexpr Grey NearestNeighbor_GRBG_Gray{false, GreyRightEdge::LastColumnShuffle};
constexpr Grey NearestNeighbor_GBRG_Gray{false, GreyRightEdge::LastColumnShuffle};
constexpr Grey NearestNeighbor_RGGB_Gray_16Bits{false, GreyRightEdge::LastColumnShuffle};
constexpr Grey NearestNeighbor_BGGR_Gray_16Bits{false, GreyRightEdge::LastColumnShuffle};
constexpr Grey NearestNeighbor_GRBG_Gray_16Bits{false, GreyRightEdge::LastColumnShuffle};
constexpr Grey NearestNeighbor_GBRG_Gray_16Bits{false, GreyRightEdge::LastColumnShuffle};
constexpr Grey NearestNeighbor_RGGB_Gray_Flip_16Bits{true, GreyRightEdge::LastColumnShuffle};

}  // namespace qzrcfa::members
